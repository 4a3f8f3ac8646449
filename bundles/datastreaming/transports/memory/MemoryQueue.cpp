#include "transports/memory/MemoryQueue.hpp"

#include <algorithm>
#include <utility>

namespace kestrel::streams {

void MemoryQueue::push(std::shared_ptr<const MemoryMessage> message, std::uint64_t cost) {
  const std::uint64_t producer = message->stamp.producer;
  add(Entry{Kind::message, producer, std::move(message), ByteBudget::Charge(_budget, cost)});
}

void MemoryQueue::pushNews(Kind kind, std::uint64_t producer) {
  add(Entry{kind, producer, nullptr, {}});
}

void MemoryQueue::add(Entry entry) {
  bool wake = false;
  {
    const callbacks::MutexLock lock(_mutex);
    _entries.push_back(std::move(entry));
    _filled.store(true, std::memory_order_release);
    wake = std::exchange(_waiting, false);
  }
  if (wake) _wake.notify_one();
}

std::optional<TimePoint> MemoryQueue::take(std::vector<Entry>& batch, std::optional<TimePoint> deadline) {
  constexpr std::size_t keptCapacity = 16384;
  batch.clear();
  if (batch.capacity() > keptCapacity) batch = std::vector<Entry>();
  const bool waits = quiet();
  if (waits) (void)_waits.look([this] { return !quiet(); });
  callbacks::UniqueLock lock(_mutex);
  while (_entries.empty() && !stopped()) {
    _waiting = true;
    if (!deadline) {
      _wake.wait(lock.native());
    } else if (_wake.wait_until(lock.native(), *deadline) == std::cv_status::timeout) {
      break;
    }
  }
  _waiting = false;
  if (stopped()) return std::nullopt;
  batch.swap(_entries);
  _filled.store(false, std::memory_order_relaxed);
  const auto now = Clock::now();
  if (waits) _waits.end(now);
  return now;
}

/// Nothing is queued, as far as can be seen without the lock.
bool MemoryQueue::quiet() const {
  return !_filled.load(std::memory_order_acquire) && !stopped();
}

std::uint64_t MemoryQueue::dropMessages() {
  const callbacks::MutexLock lock(_mutex);
  const auto messages = std::ranges::count(_entries, Kind::message, &Entry::kind);
  _entries.clear();
  _filled.store(false, std::memory_order_relaxed);
  return static_cast<std::uint64_t>(messages);
}

void MemoryQueue::stop() {
  {
    const callbacks::MutexLock lock(_mutex);
    _stopped.store(true, std::memory_order_relaxed);
  }
  _wake.notify_one();
}

}  // namespace kestrel::streams
