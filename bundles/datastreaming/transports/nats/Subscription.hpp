#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "transports/nats/NatsSession.hpp"

namespace kestrel::streams {

/// A subscription that goes on from one session to the next. What came in over a session that was lost is
/// taken first. Safe from any thread; next(), waiting() and newlyDropped() are for one thread.
class Subscription {
 public:
  Subscription(std::string subject, PendingLimits limits) : _subject(std::move(subject)), _limits(limits) {}

  /// Subscribes at that session too, unless it has done so there or at a later one. The session before must
  /// read nothing any more. Throws std::runtime_error.
  void renew(const std::shared_ptr<NatsSession>& session);
  /// No session will follow: next() gives what has come in, and then no more.
  void close();
  /// Makes next() return, now and from now on, without a message.
  void end();

  /// Waits for a message, at most that long, between two sessions too. The status is NATS_OK and the message
  /// the caller's, NATS_TIMEOUT, NATS_CONNECTION_CLOSED after the end, or what the client tells of a message
  /// that it does not give.
  [[nodiscard]] natsStatus next(natsMsg** message, std::chrono::milliseconds wait);

  /// How many messages can be taken at once.
  [[nodiscard]] std::uint64_t waiting() const;
  /// How many were dropped for the limits since it was asked last.
  [[nodiscard]] std::uint64_t newlyDropped();

 private:
  /// What one session gives.
  struct Part {
    explicit Part(std::shared_ptr<natsSubscription> subscribed) : subscription(std::move(subscribed)) {}

    const std::shared_ptr<natsSubscription> subscription;
    std::atomic<bool> complete{false};  // nothing comes in any more
    std::int64_t dropped = 0;           // what newlyDropped() knows; its thread's
  };

  static void complete(Part& part);
  [[nodiscard]] bool advance(std::chrono::milliseconds wait);

  const std::string _subject;
  const PendingLimits _limits;
  std::shared_ptr<Part> _taken;  // the one that next() takes from; its thread's

  std::mutex _mutex;
  std::condition_variable _changed;
  // Guarded by _mutex.
  std::shared_ptr<Part> _current;    // the same, for the others
  std::shared_ptr<Part> _following;  // should another one follow before it is taken, its messages are lost
  std::uint64_t _session = 0;        // the newest one
  bool _ended = false;
  bool _closed = false;
};

}  // namespace kestrel::streams
