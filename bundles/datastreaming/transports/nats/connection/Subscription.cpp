#include "transports/nats/connection/Subscription.hpp"

#include <algorithm>
#include <utility>

namespace kestrel::streams {

void Subscription::renew(const std::shared_ptr<Session>& session) {
  std::shared_ptr<Part> replaced;  // released without the lock
  const callbacks::MutexLock lock(_mutex);
  if (_ended || _session >= session->number()) return;
  auto part = std::make_shared<Part>(session->subscribe(_subject, _limits));
  _session = session->number();
  if (_interruptible) complete(*_interruptible);
  replaced = std::exchange(_following, std::move(part));
  if (replaced) _neverTaken += replaced->feed->waiting();
  _changed.notify_one();
}

void Subscription::close() {
  const callbacks::MutexLock lock(_mutex);
  _closed = true;
  if (_interruptible) complete(*_interruptible);
  if (_following) complete(*_following);
  _changed.notify_one();
}

void Subscription::end() {
  const callbacks::MutexLock lock(_mutex);
  _ended = true;
  if (_interruptible) _interruptible->feed->end();
  _changed.notify_one();
}

/// Whoever waits for a message of it must not go on waiting. If messages are left nobody does, and who comes
/// to wait then sees that it is complete.
void Subscription::complete(Part& part) {
  part.complete = true;
  if (part.feed->waiting() == 0) part.feed->end();
}

natsStatus Subscription::next(natsMsg** message, std::chrono::milliseconds wait) {
  while (_taken || advance(wait)) {
    if (std::exchange(_skipped, false)) return NATS_SLOW_CONSUMER;
    const bool complete = _taken->complete;
    const natsStatus status = _taken->feed->next(message, complete ? std::chrono::milliseconds(0) : wait);
    const bool over = status == NATS_CONNECTION_CLOSED || status == NATS_INVALID_SUBSCRIPTION ||
                      (complete && status == NATS_TIMEOUT);
    if (!over) return status;
    {
      const callbacks::MutexLock lock(_mutex);
      _interruptible.reset();
    }
    _taken.reset();
  }
  const callbacks::MutexLock lock(_mutex);
  return _ended || _closed ? NATS_CONNECTION_CLOSED : NATS_TIMEOUT;
}

/// Goes on to the next session; returns false if none has come in time, or none will.
bool Subscription::advance(std::chrono::milliseconds wait) {
  callbacks::UniqueLock lock(_mutex);
  _changed.wait_for(lock.native(), wait,
                    [&]() KESTREL_REQUIRES(_mutex) { return _following || _ended || _closed; });
  if (_ended || !_following) return false;
  _interruptible = std::exchange(_following, nullptr);
  _taken = _interruptible;
  _skipped = _neverTaken > 0;
  return true;
}

std::uint64_t Subscription::waiting() {
  const callbacks::MutexLock lock(_mutex);
  return (_taken ? _taken->feed->waiting() : 0) + (_following ? _following->feed->waiting() : 0);
}

std::uint64_t Subscription::newlyDropped() {
  std::uint64_t dropped = 0;
  if (_taken) {
    const std::uint64_t known = _taken->dropped;
    dropped = (_taken->dropped = std::max(_taken->feed->dropped(), known)) - known;
  }
  const callbacks::MutexLock lock(_mutex);
  return dropped + std::exchange(_neverTaken, 0);
}

}  // namespace kestrel::streams
