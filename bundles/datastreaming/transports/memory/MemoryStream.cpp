#include "transports/memory/MemoryStream.hpp"

#include <algorithm>

#include "delivery/ErrorOutlet.hpp"

namespace kestrel::streams {

MemoryStream::~MemoryStream() {
  const std::uint64_t unread = _attended ? 0 : _queues.front()->dropMessages();
  const auto context = _context.lock();
  if (unread == 0 || !context) return;
  StreamCounters::add(context->counters.lost, unread);
  ErrorOutlet(context).report("nobody has come to read what was sent; messages lost: " +
                              std::to_string(unread));
}

void MemoryStream::openedBy(const std::shared_ptr<StreamContext>& context) {
  const callbacks::MutexLock lock(_mutex);
  _context = context;
}

std::optional<std::string> MemoryStream::refusalLocked(std::uint64_t size, std::uint64_t cost) const {
  for (const auto& queue : _queues) {
    const ByteBudget& budget = queue->budget();
    if (budget.hasRoom(cost)) continue;
    return "message of " + std::to_string(size) + " bytes refused: " + std::to_string(budget.used()) +
           " bytes wait for " + (_attended ? "a consumer" : "the first consumer") + ", the limit is " +
           std::to_string(budget.limit());
  }
  return std::nullopt;
}

std::optional<std::string> MemoryStream::refusal(std::uint64_t size, std::uint64_t cost) {
  const callbacks::MutexLock lock(_mutex);
  return refusalLocked(size, cost);
}

std::optional<std::string> MemoryStream::publish(const std::shared_ptr<MemoryMessage>& message,
                                                 std::uint64_t cost) {
  // Only this function takes room, and it does so under the lock: room that was seen stays.
  const callbacks::MutexLock lock(_mutex);
  if (auto why = refusalLocked(message->size(), cost)) return why;
  message->arrival = Clock::now();
  for (const auto& queue : _queues) queue->push(message, cost);
  return std::nullopt;
}

void MemoryStream::announce(MemoryQueue::Kind kind, std::uint64_t producer) {
  const callbacks::MutexLock lock(_mutex);
  for (const auto& queue : _queues) queue->pushNews(kind, producer);
}

std::shared_ptr<MemoryQueue> MemoryStream::attach() {
  const callbacks::MutexLock lock(_mutex);
  if (_attended) return addQueue();
  _attended = true;
  return _queues.front();
}

void MemoryStream::detach(const std::shared_ptr<MemoryQueue>& queue) {
  const callbacks::MutexLock lock(_mutex);
  std::erase(_queues, queue);
  if (!_queues.empty()) return;
  (void)addQueue();
  _attended = false;
}

std::shared_ptr<MemoryQueue> MemoryStream::addQueue() {
  auto& queue = _queues.emplace_back(std::make_shared<MemoryQueue>(_queueLimit));
  _queuesMade.fetch_add(1, std::memory_order_relaxed);
  return queue;
}

MemoryStreams& MemoryStreams::shared() {
  static auto* const streams = new MemoryStreams();
  return *streams;
}

std::shared_ptr<MemoryStream> MemoryStreams::open(const std::string& name) {
  if (name.empty()) return std::make_shared<MemoryStream>(_queueLimit);
  const callbacks::MutexLock lock(_mutex);
  if (_streams.size() >= _sweepAt) sweep();
  auto& known = _streams[name];
  auto stream = known.lock();
  if (!stream) {
    stream = std::make_shared<MemoryStream>(_queueLimit);
    known = stream;
  }
  return stream;
}

/// Forgets streams that nobody holds. At doubling sizes only, so that opening stays cheap.
void MemoryStreams::sweep() {
  std::erase_if(_streams, [](const auto& item) { return item.second.expired(); });
  _sweepAt = std::max<std::size_t>(64, 2 * _streams.size());
}

}  // namespace kestrel::streams
