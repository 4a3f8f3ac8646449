#include "transports/nats/Outbox.hpp"

#include <iterator>
#include <map>
#include <utility>

namespace kestrel::streams {

namespace {

constexpr int senderRounds = 16;  // writes, with what others posted, that one sender may be kept for

std::string refusal(natsStatus status) {
  return "the NATS client refused it: " + describe(status);
}

/// Whether it was not refused for what it is; the next session may take it.
bool foundConnectionLost(natsStatus status) {
  return status == NATS_INSUFFICIENT_BUFFER || status == NATS_CONNECTION_CLOSED ||
         status == NATS_CONNECTION_DISCONNECTED;
}

}  // namespace

std::optional<std::string> Outbox::post(Post post) {
  std::unique_lock lock(_mutex);
  if (_closed) return _closed;
  if (obsolete(post)) return "the connection was lost";
  NatsSession* const session = _session.get();
  const bool loopWrites = session != nullptr && session->loop().writesAlone();
  if (!_pumping && !loopWrites && _waiting.empty() && takesMore()) {
    _pumping = true;
    const natsStatus status = publish(lock, *session, post);
    const bool lost = foundConnectionLost(status);
    if (lost) putBack(std::move(post));
    drain(lock, *session, senderRounds);
    if (status == NATS_OK || lost) return std::nullopt;
    return refusal(status);
  }
  if (_waitingBytes + post.cost > _limit) {
    return "it takes " + std::to_string(post.cost) + " bytes, and of the " + std::to_string(_limit) +
           " bytes that may wait for the connection " + std::to_string(_waitingBytes) + " are taken" +
           (session == nullptr ? "; " + _away : "");
  }
  _waitingBytes += post.cost;
  _waiting.push_back(std::move(post));
  if (loopWrites && !_pumping) session->loop().wake();
  return std::nullopt;
}

void Outbox::putBack(Post post) {
  _waitingBytes += post.cost;
  _waiting.push_front(std::move(post));
}

void Outbox::flush() {
  if (_busyUntil.exchange(0) == 0) return;
  std::unique_lock lock(_mutex);
  if (!_session || _pumping || _session->loop().writesAlone()) return;
  _pumping = true;
  drain(lock, *_session, senderRounds);
}

void Outbox::pump() {
  std::unique_lock lock(_mutex);
  if (!_session) return;
  // Whoever pumps now may have seen the state from before the event that this call is about.
  _pumpAgain = _pumping;
  if (_pumping) return;
  _pumping = true;
  drain(lock, *_session, 0);
}

void Outbox::drain(std::unique_lock<std::mutex>& lock, NatsSession& session, int rounds) {
  const bool onLoop = rounds == 0;
  bool more = false;
  std::vector<Post> failed;
  std::string why;
  do {
    _pumpAgain = false;
    while (!_waiting.empty() && takesMore()) {
      Post post = std::move(_waiting.front());
      _waiting.pop_front();
      _waitingBytes -= post.cost;
      if (obsolete(post)) continue;
      const natsStatus status = publish(lock, session, post);
      if (status == NATS_OK) continue;
      if (foundConnectionLost(status)) {
        putBack(std::move(post));
        break;
      }
      why = refusal(status);
      failed.push_back(std::move(post));
    }
    const bool hold = !onLoop && holdsBack(session);
    lock.unlock();
    // What the socket did not take is for the loop, which looks by itself after its own turn, but may not
    // know yet after that of another thread.
    if (hold) {
      session.loop().wakeLater();
    } else if (!session.loop().flush() && !onLoop) {
      session.loop().wake();
    }
    lock.lock();
    more = _pumpAgain || (!_waiting.empty() && takesMore());
  } while (more && (onLoop || --rounds > 0));
  if (more) session.loop().wake();
  _pumping = false;
  _pumped.notify_all();
  lock.unlock();
  reportFailed(failed, why);
}

void Outbox::open(std::shared_ptr<NatsSession> session) {
  const std::lock_guard lock(_mutex);
  _session = std::move(session);
  _session->loop().wake();
}

void Outbox::suspend(const std::string& why) {
  std::unique_lock lock(_mutex);
  _away = why;
  dropSession(lock);
}

void Outbox::dropSession(std::unique_lock<std::mutex>& lock) {
  const auto session = std::exchange(_session, nullptr);
  _pumped.wait(lock, [this] { return !_pumping; });
}

void Outbox::close(const std::string& why) {
  std::vector<Post> dropped;
  {
    std::unique_lock lock(_mutex);
    if (_closed) return;
    _closed = why;
    dropSession(lock);
    dropped.assign(std::move_iterator(_waiting.begin()), std::move_iterator(_waiting.end()));
    _waiting.clear();
    _waitingBytes = 0;
  }
  reportFailed(dropped, why);
}

void Outbox::reportFailed(std::span<const Post> failed, const std::string& why) {
  std::map<Poster*, std::vector<std::uint64_t>> tags;
  for (const Post& post : failed) {
    if (post.poster) tags[post.poster.get()].push_back(post.tag);
  }
  for (const auto& [poster, theirs] : tags) poster->postsFailed(theirs, why);
}

bool Outbox::empty() {
  std::shared_ptr<NatsSession> session;
  {
    const std::lock_guard lock(_mutex);
    if (_pumping || !_waiting.empty()) return false;
    session = _session;
  }
  return !session || natsConnection_Buffered(session->handle()) <= 0;
}

bool Outbox::takesMore() const {
  return _session && _session->usable() && natsConnection_Buffered(_session->handle()) < window;
}

bool Outbox::holdsBack(const NatsSession& session) const {
  const auto until = _busyUntil.load(std::memory_order_relaxed);
  return until != 0 && Clock::now().time_since_epoch().count() < until &&
         natsConnection_Buffered(session.handle()) < mostHeldBack;
}

natsStatus Outbox::publish(std::unique_lock<std::mutex>& lock, NatsSession& session, const Post& post) {
  lock.unlock();
  natsStatus status = NATS_OK;
  if (post.poster) post.poster->posting(post.tag);
  {
    const SocketLoop::FlushesItself mark;
    status = natsConnection_PublishMsg(session.handle(), post.message.get());
  }
  lock.lock();
  return status;
}

}  // namespace kestrel::streams
