#pragma once

#include <nats/nats.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>

#include "transports/nats/NatsHandles.hpp"
#include "transports/nats/connection/NatsEndpoint.hpp"
#include "transports/outgoing/Writer.hpp"

namespace kestrel::streams {

/// What one session has received for one subject, in the order of coming in. Unsubscribes and gives back what
/// was not taken when it is destroyed. Safe from any thread.
class Feed {
 public:
  virtual ~Feed() = default;

  /// Waits for a message, at most that long. NATS_OK and the message, then the caller's; NATS_TIMEOUT;
  /// NATS_CONNECTION_CLOSED or NATS_INVALID_SUBSCRIPTION after the end; or what the client tells of a message
  /// that it does not give.
  [[nodiscard]] virtual natsStatus next(natsMsg** message, std::chrono::milliseconds wait) = 0;
  /// How many messages can be taken at once.
  [[nodiscard]] virtual std::uint64_t waiting() = 0;
  /// How many were dropped since the beginning, for the limits.
  [[nodiscard]] virtual std::uint64_t dropped() = 0;
  /// Drops what waits and makes next() return, now and from now on.
  virtual void end() = 0;
};

/// One connection to one server; what is appended is a natsMsg. The seam between what the connection decides
/// (what to write, hold back, refuse, take up again) and the client with its socket: the one that is used is
/// NatsSession. Safe from any thread.
class Session : public Writer {
 public:
  /// The largest message, headers included, that the server takes.
  [[nodiscard]] virtual std::uint64_t maxPayload() const = 0;
  /// What the client has told of its loss; may be empty.
  [[nodiscard]] virtual std::string failure() const = 0;
  /// The client's own object, for requests that nothing here offers.
  [[nodiscard]] virtual natsConnection* handle() const = 0;

  /// Subscribes; the server knows before it gets anything that is published afterwards. At most so much waits
  /// to be taken. The feed holds the session. Throws std::runtime_error.
  [[nodiscard]] virtual std::shared_ptr<Feed> subscribe(const std::string& subject, PendingLimits limits) = 0;
  /// Ends its loop; nothing is read or written afterwards. Not on the loop's thread.
  virtual void stop() = 0;
};

/// Learns of the loss of sessions, on whichever thread finds it.
class LossListener {
 public:
  virtual ~LossListener() = default;
  /// Must neither wait nor use the session. May come more than once for a session, and when it is closed.
  virtual void lost(std::uint64_t session) = 0;
};

/// Makes a session with one of the endpoint's servers; `writable` is called on its loop whenever more can be
/// written. Throws std::runtime_error that names the endpoint and the cause.
using SessionMaker = std::function<std::shared_ptr<Session>(
    const NatsEndpoint& endpoint, const std::shared_ptr<LossListener>& listener,
    const std::function<void()>& writable, const std::stop_token& stop)>;

}  // namespace kestrel::streams
