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

}  // namespace

std::optional<std::string> Outbox::post(Post post) {
  std::unique_lock lock(_mutex);
  if (_closed) return _closed;
  if (_connection == nullptr) return "the connection is not open yet";
  if (obsolete(post)) return "the connection was lost";
  const bool mayWrite = !_pumping && !_loop.writesAlone();
  if (mayWrite && _waiting.empty() && takesMore()) {
    _pumping = true;
    const natsStatus status = publish(lock, post);
    drain(lock, senderRounds);
    if (status == NATS_OK) return std::nullopt;
    return refusal(status);
  }
  if (_waitingBytes + post.cost > _limit) {
    return "it takes " + std::to_string(post.cost) + " bytes, and of the " + std::to_string(_limit) +
           " bytes that may wait for the connection " + std::to_string(_waitingBytes) + " are taken";
  }
  _waitingBytes += post.cost;
  _waiting.push_back(std::move(post));
  if (_loop.writesAlone() && !_pumping) _loop.wake();
  return std::nullopt;
}

void Outbox::flush() {
  if (_busyUntil.exchange(0) == 0 || _loop.writesAlone()) return;
  std::unique_lock lock(_mutex);
  if (_connection == nullptr || _pumping) return;
  _pumping = true;
  drain(lock, senderRounds);
}

void Outbox::pump() {
  std::unique_lock lock(_mutex);
  if (_connection == nullptr) return;
  // Whoever pumps now may have seen the state from before the event that this call is about.
  _pumpAgain = _pumping;
  if (_pumping) return;
  _pumping = true;
  drain(lock, 0);
}

void Outbox::drain(std::unique_lock<std::mutex>& lock, int rounds) {
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
      const natsStatus status = publish(lock, post);
      if (status == NATS_OK) continue;
      why = refusal(status);
      failed.push_back(std::move(post));
    }
    const bool hold = !onLoop && holdsBack();
    lock.unlock();
    // What the socket did not take is for the loop, which looks by itself after its own turn, but may not
    // know yet after that of another thread.
    if (hold) {
      _loop.wakeLater();
    } else if (!_loop.flush() && !onLoop) {
      _loop.wake();
    }
    lock.lock();
    more = _pumpAgain || (!_waiting.empty() && takesMore());
  } while (more && (onLoop || --rounds > 0));
  _pumping = false;
  if (more) _loop.wake();
  lock.unlock();
  reportFailed(failed, why);
}

void Outbox::open(natsConnection* connection) {
  const std::lock_guard lock(_mutex);
  _connection = connection;
}

void Outbox::close(const std::string& why) {
  std::vector<Post> dropped;
  {
    const std::lock_guard lock(_mutex);
    if (_closed) return;
    _closed = why;
    _connection = nullptr;
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
  natsConnection* connection = nullptr;
  {
    const std::lock_guard lock(_mutex);
    if (_connection == nullptr) return true;
    if (_pumping || !_waiting.empty()) return false;
    connection = _connection;
  }
  return natsConnection_Buffered(connection) <= 0;
}

bool Outbox::takesMore() const {
  return _connection != nullptr && natsConnection_Status(_connection) == NATS_CONN_STATUS_CONNECTED &&
         _loop.epoch() != 0 && natsConnection_Buffered(_connection) < window;
}

bool Outbox::holdsBack() const {
  const auto until = _busyUntil.load(std::memory_order_relaxed);
  return until != 0 && _connection != nullptr && Clock::now().time_since_epoch().count() < until &&
         natsConnection_Buffered(_connection) < mostHeldBack;
}

natsStatus Outbox::publish(std::unique_lock<std::mutex>& lock, const Post& post) {
  natsConnection* const connection = _connection;
  lock.unlock();
  natsStatus status = NATS_OK;
  if (post.poster) post.poster->posting(post.tag);
  {
    const SocketLoop::FlushesItself mark;
    status = natsConnection_PublishMsg(connection, post.message.get());
  }
  lock.lock();
  return status;
}

}  // namespace kestrel::streams
