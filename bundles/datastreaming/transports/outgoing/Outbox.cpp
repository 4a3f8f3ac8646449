#include "transports/outgoing/Outbox.hpp"

#include <algorithm>
#include <iterator>
#include <map>
#include <new>
#include <utility>

namespace kestrel::streams {

namespace {

constexpr int senderRounds = 16;  // writes, with what others posted, that one sender may be kept for

}  // namespace

std::optional<std::string> Outbox::post(Post post) {
  Failed others;
  std::optional<std::string> refused;
  {
    const callbacks::MutexLock lock(_mutex);
    if (_closed) return _closed;
    if (obsolete(post)) return "the connection was lost";
    noteGap();
    const bool loopWrites = _session && _session->loopWrites();
    if (_pumping || loopWrites || !_waiting.empty() || !takesMore()) return enqueue(std::move(post));
    refused = writeNow(std::move(post), others);
  }
  report(others);
  return refused;
}

std::optional<std::string> Outbox::enqueue(Post post) {
  if (_waitingBytes + post.cost > _limit) {
    return "it takes " + std::to_string(post.cost) + " bytes, and of the " + std::to_string(_limit) +
           " bytes that may wait for the connection " + std::to_string(_waitingBytes) + " are taken" +
           (_session ? "" : "; " + _away);
  }
  const std::uint64_t cost = post.cost;
  _waiting.push_back(std::move(post));
  _waitingBytes += cost;
  if (!_pumping && _session && _session->loopWrites()) _session->wake();
  return std::nullopt;
}

std::optional<std::string> Outbox::writeNow(Post post, Failed& others) {
  Writer& session = *_session;
  const Pumping mark(*this);
  Written written = append(session, post);
  if (written.kind == Written::Kind::lost) putBack(std::move(post));
  others = drain(session, senderRounds);
  if (written.kind != Written::Kind::refused) return std::nullopt;
  return std::move(written.why);
}

void Outbox::noteGap() {
  constexpr int weight = 8;
  const TimePoint now = _now();
  const auto gap = std::min<Clock::duration>(now - _latest, pause);
  _gap += (gap - _gap) / weight;
  _moreFollow = gap < pause && _session && _gap < _session->shortGap();
  _latest = now;
}

void Outbox::putBack(Post post) {
  const std::uint64_t cost = post.cost;
  _waiting.push_front(std::move(post));
  _waitingBytes += cost;
}

void Outbox::flush() {
  if (_busyUntil.exchange(0) == 0) return;
  Failed failed;
  {
    const callbacks::MutexLock lock(_mutex);
    if (!_session || _pumping || _session->loopWrites()) return;
    const Pumping mark(*this);
    failed = drain(*_session, senderRounds);
  }
  report(failed);
}

void Outbox::pump() {
  try {
    report(pumped());
  } catch (const std::bad_alloc&) {  // to say what has been refused, which receivers will miss
  }
}

Outbox::Failed Outbox::pumped() {
  const callbacks::MutexLock lock(_mutex);
  if (!_session) return {};
  // Whoever pumps now may have seen the state from before the event that this call is about.
  _pumpAgain = _pumping;
  if (_pumping) return {};
  const Pumping mark(*this);
  return drain(*_session, 0);
}

Outbox::Failed Outbox::drain(Writer& session, int rounds) {
  const bool onLoop = rounds == 0;
  bool more = false;
  Failed failed;
  do {
    _pumpAgain = false;
    appendWaiting(session, failed);
    write(session, onLoop);
    more = _pumpAgain || (!_waiting.empty() && takesMore());
  } while (more && (onLoop || --rounds > 0));
  if (more) session.wake();
  return failed;
}

void Outbox::appendWaiting(Writer& session, Failed& failed) {
  while (!_waiting.empty() && takesMore()) {
    Post post = std::move(_waiting.front());
    _waiting.pop_front();
    _waitingBytes -= post.cost;
    if (obsolete(post)) continue;
    Written written = append(session, post);
    if (written.kind == Written::Kind::taken) continue;
    if (written.kind == Written::Kind::lost) return putBack(std::move(post));
    failed.why = std::move(written.why);
    failed.posts.push_back(std::move(post));
  }
}

/// Unless more is to be written with it: answers to what else has come in, or what a sender posts that is
/// faster than writes are. Then the loop writes, as soon as it is awake.
void Outbox::write(Writer& session, bool onLoop) {
  const bool few = !onLoop && session.buffered() < mostHeldBack;
  const bool moreExpected = few && expectsMore();
  const bool moreFollow = few && _moreFollow;
  const Unlocked pause(_mutex);
  // What the socket did not take is for the loop, which looks by itself after its own turn, but may not know
  // yet after that of another thread.
  if (moreExpected) {
    session.wakeLater();
  } else if (moreFollow || (!session.flush() && !onLoop)) {
    session.wake();
  }
}

void Outbox::open(std::shared_ptr<Writer> session) {
  const callbacks::MutexLock lock(_mutex);
  _session = std::move(session);
  _session->wake();
}

void Outbox::suspend(const std::string& why) {
  callbacks::UniqueLock lock(_mutex);
  _away = why;
  dropSession(lock);
}

void Outbox::dropSession(callbacks::UniqueLock& lock) {
  const auto session = std::exchange(_session, nullptr);
  _pumped.wait(lock.native(), [this]() KESTREL_REQUIRES(_mutex) { return !_pumping; });
}

void Outbox::close(const std::string& why) {
  Failed dropped{{}, why};
  {
    callbacks::UniqueLock lock(_mutex);
    if (_closed) return;
    _closed = why;
    dropSession(lock);
    dropped.posts.assign(std::move_iterator(_waiting.begin()), std::move_iterator(_waiting.end()));
    _waiting.clear();
    _waitingBytes = 0;
  }
  report(dropped);
}

void Outbox::report(const Failed& failed) {
  std::map<Poster*, std::vector<std::uint64_t>> tags;
  for (const Post& post : failed.posts) {
    if (post.poster) tags[post.poster.get()].push_back(post.tag);
  }
  for (const auto& [poster, theirs] : tags) poster->postsFailed(theirs, failed.why);
}

bool Outbox::empty() {
  std::shared_ptr<Writer> session;
  {
    const callbacks::MutexLock lock(_mutex);
    if (_pumping || !_waiting.empty()) return false;
    session = _session;
  }
  return !session || session->buffered() <= 0;
}

std::uint64_t Outbox::waitingBytes() {
  const callbacks::MutexLock lock(_mutex);
  return _waitingBytes;
}

std::deque<Outbox::Post> Outbox::takeWaiting() {
  const callbacks::MutexLock lock(_mutex);
  _waitingBytes = 0;
  return std::exchange(_waiting, {});
}

bool Outbox::takesMore() const {
  return _session && _session->usable() && _session->buffered() < window;
}

bool Outbox::expectsMore() const {
  const auto until = _busyUntil.load(std::memory_order_relaxed);
  return until != 0 && _now().time_since_epoch().count() < until;
}

Written Outbox::append(Writer& session, const Post& post) {
  const Unlocked pause(_mutex);
  if (post.poster) post.poster->posting(post.tag);
  return session.append(post.message);
}

}  // namespace kestrel::streams
