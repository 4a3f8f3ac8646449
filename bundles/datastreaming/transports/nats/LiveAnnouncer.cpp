#include "transports/nats/LiveAnnouncer.hpp"

#include <algorithm>
#include <utility>

#include "transports/nats/OutgoingMessage.hpp"
#include "transports/shared/Log.hpp"

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
  const std::lock_guard lock(_mutex);
  (void)say(ProducerEvent::Kind::abandoned);
}

void LiveAnnouncer::retire() {
  const std::lock_guard lock(_mutex);
  _retired = true;
  _confirmed = _confirmed || _last == 0;
  if (!_confirmed) _asked = say(ProducerEvent::Kind::gone, true);
}

bool LiveAnnouncer::say(ProducerEvent::Kind kind, bool ask) {
  try {
    const auto age = std::chrono::ceil<std::chrono::milliseconds>(Clock::now() - _began.load());
    Outbox& outbox = _connection.outbox();
    if (outbox.post({makeEvent(_subject, {kind, _producer, _last, age}), cost, 0, nullptr, 0})) return false;
    // The question goes behind the word: when it comes back, the server has both.
    if (!ask) return true;
    return !outbox.post({makeSignal(_replyPrefix + std::to_string(++_question)), cost, 0, nullptr, 0});
  } catch (const std::exception& error) {
    logError(std::string("a producer could not say how far it has come: ") + error.what());
    return false;
  }
}

void LiveAnnouncer::sayIdle(TimePoint now) {
  const std::uint64_t last = _last.load(std::memory_order_acquire);
  if (std::exchange(_seen, last) != last) {  // its messages speak for themselves
    _interval = firstInterval;
    _due = now + _interval;
  } else if (last > 0 && now >= _due && say(ProducerEvent::Kind::idle)) {
    _interval = std::min(2 * _interval, longestInterval);
    _due = now + _interval;
  }
}

void LiveAnnouncer::replied(std::uint64_t number, natsMsg*) {
  const std::lock_guard lock(_mutex);
  if (_asked && number == _question) _confirmed = true;
}

bool LiveAnnouncer::beat() {
  const std::lock_guard lock(_mutex);
  if (!_retired) {
    sayIdle(Clock::now());
  } else if (!_confirmed && !_asked) {
    _asked = say(ProducerEvent::Kind::gone, true);
  }
  return !_confirmed;
}

bool LiveAnnouncer::idle() {
  const std::lock_guard lock(_mutex);
  return !_retired || _confirmed;
}

void LiveAnnouncer::abandon(const std::string&) {
  const std::lock_guard lock(_mutex);
  _confirmed = true;
}

/// What was said last may not have arrived.
void LiveAnnouncer::disconnected() {
  const std::lock_guard lock(_mutex);
  _asked = false;
  _interval = firstInterval;
  _due = {};
}

}  // namespace kestrel::streams
