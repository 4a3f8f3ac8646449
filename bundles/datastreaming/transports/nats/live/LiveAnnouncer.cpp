#include "transports/nats/live/LiveAnnouncer.hpp"

#include <utility>

#include "delivery/Log.hpp"
#include "transports/nats/wire/OutgoingMessage.hpp"

namespace kestrel::streams {

namespace {
constexpr std::uint64_t cost = 256;
}

std::shared_ptr<LiveAnnouncer> LiveAnnouncer::create(NatsConnection& connection, std::string subject,
                                                     std::uint64_t producer) {
  std::shared_ptr<LiveAnnouncer> announcer(new LiveAnnouncer(connection, std::move(subject), producer));
  announcer->_replyPrefix = connection.inbox().add(announcer);
  connection.watch(announcer);
  if (connection.closed()) announcer->closed(connection.lastFailure());  // it may have been just before
  return announcer;
}

std::chrono::milliseconds LiveAnnouncer::age() {
  const TimePoint now = Clock::now();
  if (_began.load(std::memory_order_relaxed) == TimePoint()) _began.store(now, std::memory_order_relaxed);
  return std::chrono::ceil<std::chrono::milliseconds>(now - _began.load(std::memory_order_relaxed));
}

void LiveAnnouncer::abandoned() {
  const callbacks::MutexLock lock(_mutex);
  (void)say(ProducerEvent::Kind::abandoned);
}

void LiveAnnouncer::retire() {
  const callbacks::MutexLock lock(_mutex);
  _announcement.retire();
  announce();
}

void LiveAnnouncer::announce() {
  const TimePoint now = Clock::now();
  const auto kind = _announcement.due(_last.load(std::memory_order_acquire), now);
  if (kind && say(*kind)) _announcement.said(*kind, now);
}

bool LiveAnnouncer::say(ProducerEvent::Kind kind) {
  try {
    const auto age = std::chrono::ceil<std::chrono::milliseconds>(Clock::now() - _began.load());
    Outbox& outbox = _connection.outbox();
    if (outbox.post({makeEvent(_subject, {kind, _producer, _last, age}), cost, 0, nullptr, 0})) return false;
    if (kind != ProducerEvent::Kind::gone) return true;
    // The question goes behind the word: when it comes back, the server has both.
    return !outbox.post({makeSignal(_replyPrefix + std::to_string(++_question)), cost, 0, nullptr, 0});
  } catch (const std::exception& error) {
    logError(std::string("a producer could not say how far it has come: ") + error.what());
    return false;
  }
}

void LiveAnnouncer::replied(std::uint64_t number, natsMsg*) {
  const callbacks::MutexLock lock(_mutex);
  if (number == _question) _announcement.confirm();
}

bool LiveAnnouncer::beat() {
  const callbacks::MutexLock lock(_mutex);
  announce();
  return !_announcement.settled();
}

bool LiveAnnouncer::idle() {
  const callbacks::MutexLock lock(_mutex);
  return !_announcement.retired() || _announcement.settled();
}

void LiveAnnouncer::abandon(const std::string&) {
  const callbacks::MutexLock lock(_mutex);
  _announcement.abandon();
}

void LiveAnnouncer::disconnected() {
  const callbacks::MutexLock lock(_mutex);
  _announcement.restart();
}

}  // namespace kestrel::streams
