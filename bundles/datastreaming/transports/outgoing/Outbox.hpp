#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "sequencing/Frame.hpp"
#include "transports/outgoing/Writer.hpp"

namespace kestrel::streams {

/// Who put a message into an outbox, for what becomes of it later.
class Poster {
 public:
  virtual ~Poster() = default;

  /// The message is about to go to the connection. Called by one thread at a time, in the order of sending:
  /// it must not post.
  virtual void posting(std::uint64_t tag) noexcept { (void)tag; }
  /// Messages that waited could not be sent. Called with no lock held.
  virtual void postsFailed(const std::vector<std::uint64_t>& tags, const std::string& why) {
    (void)tags;
    (void)why;
  }
};

/// What goes out over one connection, in the order of posting, without ever waiting: past what the socket
/// takes, and while the connection is away, messages wait here up to a bound. Safe from any thread.
class Outbox {
 public:
  static constexpr std::uint64_t defaultLimit = 256ULL << 20;

  struct Post {
    Writer::Message message;
    std::uint64_t cost = 0;          ///< the memory that it takes while it waits
    std::uint64_t tag = 0;           ///< the poster's own
    std::shared_ptr<Poster> poster;  ///< may be empty
    std::uint64_t session = 0;       ///< if not 0: the only one that it may go to, else it is dropped
  };

  using TimeSource = TimePoint (*)();

  explicit Outbox(std::uint64_t limit = defaultLimit, TimeSource now = &Clock::now)
      : _limit(limit), _now(now) {}

  /// Takes the message over; or returns why not.
  [[nodiscard]] std::optional<std::string> post(Post post);

  /// More messages have come in, and answers to them may go out together: what is posted during the next
  /// `busy` may be held back for 200 µs, or until flush().
  void expectMore() { _busyUntil = (_now() + busy).time_since_epoch().count(); }
  /// All that came in has been handled.
  void flush();

  /// Sends what the socket takes. For the session's loop.
  void pump();

  /// Sends over that session from now on.
  void open(std::shared_ptr<Writer> session);
  /// Until another one comes everything waits here. When this returns, the session is not used any more. The
  /// text is for messages that find no room meanwhile. Not from the session's loop.
  void suspend(const std::string& why);
  /// From now on every post is refused with that text, and what waits is dropped and reported so.
  void close(const std::string& why);

  /// Whether everything has gone to the system.
  [[nodiscard]] bool empty();
  /// What waits here costs so much.
  [[nodiscard]] std::uint64_t waitingBytes();
  /// Takes back what waits, in its order.
  [[nodiscard]] std::deque<Post> takeWaiting();

 private:
  /// What the connection has refused.
  struct Failed {
    std::vector<Post> posts;
    std::string why;
  };

  /// The calling thread uses the connection as long as one exists. Made and destroyed under the lock.
  class Pumping {
   public:
    explicit Pumping(Outbox& outbox) KESTREL_UNCHECKED : _outbox(outbox) { outbox._pumping = true; }
    ~Pumping() KESTREL_UNCHECKED {
      _outbox._pumping = false;
      _outbox._pumped.notify_all();
    }
    Pumping(const Pumping&) = delete;
    Pumping& operator=(const Pumping&) = delete;

   private:
    Outbox& _outbox;
  };

  /// Gives the lock up for a scope.
  class Unlocked {
   public:
    explicit Unlocked(callbacks::Mutex& mutex) KESTREL_UNCHECKED : _mutex(mutex) { _mutex.unlock(); }
    ~Unlocked() KESTREL_UNCHECKED { _mutex.lock(); }
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;

   private:
    callbacks::Mutex& _mutex;
  };

  static void report(const Failed& failed);
  [[nodiscard]] Failed pumped();
  [[nodiscard]] bool takesMore() const KESTREL_REQUIRES(_mutex);
  [[nodiscard]] std::optional<std::string> enqueue(Post post) KESTREL_REQUIRES(_mutex);
  [[nodiscard]] std::optional<std::string> writeNow(Post post, Failed& others) KESTREL_REQUIRES(_mutex);
  void putBack(Post post) KESTREL_REQUIRES(_mutex);
  void dropSession(callbacks::UniqueLock& lock) KESTREL_REQUIRES(_mutex);
  [[nodiscard]] bool obsolete(const Post& post) const KESTREL_REQUIRES(_mutex) {
    return post.session != 0 && (!_session || post.session != _session->number());
  }
  // These are for the thread that pumps. They give the lock up while the writer or the system works, and the
  // session may be left meanwhile. After so many rounds of drain(), unless 0, the loop goes on.
  [[nodiscard]] Written append(Writer& session, const Post& post) KESTREL_REQUIRES(_mutex);
  [[nodiscard]] Failed drain(Writer& session, int rounds) KESTREL_REQUIRES(_mutex);
  void appendWaiting(Writer& session, Failed& failed) KESTREL_REQUIRES(_mutex);
  void write(Writer& session, bool onLoop) KESTREL_REQUIRES(_mutex);
  void noteGap() KESTREL_REQUIRES(_mutex);
  [[nodiscard]] bool expectsMore() const;

  // What comes after that goes at once, whatever came before.
  static constexpr std::chrono::microseconds pause{100};
  // So that a handler that takes its time does not delay others.
  static constexpr std::chrono::microseconds busy{100};
  static constexpr int mostHeldBack = 32 << 10;
  // Large messages go one by one: what the socket did not take is moved in memory for each that follows.
  static constexpr int window = 64 << 10;

  const std::uint64_t _limit;
  const TimeSource _now;
  callbacks::Mutex _mutex;
  std::shared_ptr<Writer> _session KESTREL_GUARDED_BY(_mutex);  // none while the connection is away
  std::string _away KESTREL_GUARDED_BY(_mutex);                 // why it is
  std::deque<Post> _waiting KESTREL_GUARDED_BY(_mutex);
  std::uint64_t _waitingBytes KESTREL_GUARDED_BY(_mutex) = 0;
  std::optional<std::string> _closed KESTREL_GUARDED_BY(_mutex);
  // One thread at a time uses the connection. What others post meanwhile goes out with its next write, so
  // many senders share one call of the system.
  bool _pumping KESTREL_GUARDED_BY(_mutex) = false;
  bool _pumpAgain KESTREL_GUARDED_BY(_mutex) = false;
  std::condition_variable _pumped;
  TimePoint _latest KESTREL_GUARDED_BY(_mutex){};           // post
  Clock::duration _gap KESTREL_GUARDED_BY(_mutex) = pause;  // mean time between the last posts
  bool _moreFollow KESTREL_GUARDED_BY(_mutex) = false;

  std::atomic<Clock::rep> _busyUntil{0};
};

}  // namespace kestrel::streams
