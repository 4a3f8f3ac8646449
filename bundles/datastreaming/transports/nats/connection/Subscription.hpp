#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <string>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/nats/connection/Session.hpp"

namespace kestrel::streams {

/// A subscription that goes on from one session to the next. What came in over a session that was lost is
/// taken first. Safe from any thread; next(), waiting() and newlyDropped() are for one thread.
class Subscription {
 public:
  Subscription(std::string subject, PendingLimits limits) : _subject(std::move(subject)), _limits(limits) {}

  /// Subscribes at that session too, unless it has done so there or at a later one. The session before must
  /// read nothing any more. Throws std::runtime_error.
  void renew(const std::shared_ptr<Session>& session);
  /// No session will follow: next() gives what has come in, and then no more.
  void close();
  /// Makes next() return, now and from now on, without a message.
  void end();

  /// Waits for a message, at most that long, between two sessions too. The status is NATS_OK and the message
  /// the caller's, NATS_TIMEOUT, NATS_CONNECTION_CLOSED after the end, NATS_SLOW_CONSUMER once when messages
  /// were dropped, or what the client tells of a message that it does not give.
  [[nodiscard]] natsStatus next(natsMsg** message, std::chrono::milliseconds wait);

  /// How many messages can be taken at once.
  [[nodiscard]] std::uint64_t waiting();
  /// How many were dropped since it was asked last: for the limits, or because two sessions were lost before
  /// what came in over the second one was begun with.
  [[nodiscard]] std::uint64_t newlyDropped();

 private:
  /// What one session gives.
  struct Part {
    explicit Part(std::shared_ptr<Feed> subscribed) : feed(std::move(subscribed)) {}

    const std::shared_ptr<Feed> feed;
    std::atomic<bool> complete{false};  // nothing comes in any more
    std::uint64_t dropped = 0;          // what newlyDropped() knows; its thread's
  };

  static void complete(Part& part);
  [[nodiscard]] bool advance(std::chrono::milliseconds wait);

  const std::string _subject;
  const PendingLimits _limits;
  // Those of the thread that calls next().
  std::shared_ptr<Part> _taken;  // the one that it takes from
  bool _skipped = false;         // others were dropped before it, and that has not been told

  callbacks::Mutex _mutex;
  std::condition_variable _changed;
  // The same, for those who must wake next().
  std::shared_ptr<Part> _interruptible KESTREL_GUARDED_BY(_mutex);
  std::shared_ptr<Part> _following KESTREL_GUARDED_BY(_mutex);
  // Messages of parts that another one has replaced in _following.
  std::uint64_t _neverTaken KESTREL_GUARDED_BY(_mutex) = 0;
  std::uint64_t _session KESTREL_GUARDED_BY(_mutex) = 0;  // the newest one
  bool _ended KESTREL_GUARDED_BY(_mutex) = false;
  bool _closed KESTREL_GUARDED_BY(_mutex) = false;
};

}  // namespace kestrel::streams
