#include "transports/nats/Subscription.hpp"

#include <algorithm>
#include <utility>

namespace kestrel::streams {

void Subscription::renew(const std::shared_ptr<NatsSession>& session) {
  std::shared_ptr<Part> replaced;  // released without the lock
  const std::lock_guard lock(_mutex);
  if (_ended || _session >= session->number()) return;
  auto part = std::make_shared<Part>(NatsSession::subscribe(session, _subject, _limits));
  _session = session->number();
  if (_interruptible) complete(*_interruptible);
  replaced = std::exchange(_following, std::move(part));
  if (replaced) _neverTaken += waitingIn(*replaced->subscription);
  _changed.notify_one();
}

void Subscription::close() {
  const std::lock_guard lock(_mutex);
  _closed = true;
  if (_interruptible) complete(*_interruptible);
  if (_following) complete(*_following);
  _changed.notify_one();
}

void Subscription::end() {
  const std::lock_guard lock(_mutex);
  _ended = true;
  if (_interruptible) natsSubscription_Unsubscribe(_interruptible->subscription.get());
  _changed.notify_one();
}

/// Whoever waits for a message of it must not go on waiting. If messages are left nobody does, and who comes
/// to wait then sees that it is complete.
void Subscription::complete(Part& part) {
  part.complete = true;
  if (waitingIn(*part.subscription) == 0) natsSubscription_Unsubscribe(part.subscription.get());
}

natsStatus Subscription::next(natsMsg** message, std::chrono::milliseconds wait) {
  while (_taken || advance(wait)) {
    if (std::exchange(_skipped, false)) return NATS_SLOW_CONSUMER;
    const bool complete = _taken->complete;
    const natsStatus status =
        natsSubscription_NextMsg(message, _taken->subscription.get(), complete ? 0 : wait.count());
    const bool over = status == NATS_CONNECTION_CLOSED || status == NATS_INVALID_SUBSCRIPTION ||
                      (complete && status == NATS_TIMEOUT);
    if (!over) return status;
    {
      const std::lock_guard lock(_mutex);
      _interruptible.reset();
    }
    _taken.reset();
  }
  const std::lock_guard lock(_mutex);
  return _ended || _closed ? NATS_CONNECTION_CLOSED : NATS_TIMEOUT;
}

/// Goes on to the next session; returns false if none has come in time, or none will.
bool Subscription::advance(std::chrono::milliseconds wait) {
  std::unique_lock lock(_mutex);
  _changed.wait_for(lock, wait, [&] { return _following || _ended || _closed; });
  if (_ended || !_following) return false;
  _interruptible = std::exchange(_following, nullptr);
  _taken = _interruptible;
  _skipped = _neverTaken > 0;
  return true;
}

std::uint64_t Subscription::waiting() {
  const std::lock_guard lock(_mutex);
  return (_taken ? waitingIn(*_taken->subscription) : 0) +
         (_following ? waitingIn(*_following->subscription) : 0);
}

std::uint64_t Subscription::newlyDropped() {
  std::int64_t dropped = 0;
  if (_taken && natsSubscription_GetDropped(_taken->subscription.get(), &dropped) == NATS_OK) {
    dropped -= std::exchange(_taken->dropped, dropped);
  }
  const std::lock_guard lock(_mutex);
  return static_cast<std::uint64_t>(std::max<std::int64_t>(0, dropped)) + std::exchange(_neverTaken, 0);
}

}  // namespace kestrel::streams
