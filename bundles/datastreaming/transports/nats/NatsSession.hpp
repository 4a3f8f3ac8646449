#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "transports/nats/NatsEndpoint.hpp"
#include "transports/nats/NatsHandles.hpp"
#include "transports/nats/SocketLoop.hpp"

namespace kestrel::streams {

/// Learns of the loss of sessions. Called on a thread of the C client, perhaps after the session's end.
class LossListener {
 public:
  virtual ~LossListener() = default;
  /// Must not wait. May come more than once for a session.
  virtual void lost(std::uint64_t session) = 0;
};

/// One connection of the C client to one server, until it is lost; it never comes back. Safe from any thread.
///
/// The client could connect again by itself. But driven by a loop that is not its own it keeps its place in a
/// message that was cut off, and takes what the next connection brings for the rest of it. So each connection
/// gets a client object of its own. The one that was lost stays for as long as somebody holds it: what has
/// come in over it can still be taken from its subscriptions, unless the server has ended it with an error
/// that the client takes for the end of everything.
///
/// Shared by all who use it. Whoever lets go last closes it, at once; that must not be a thread of the loop
/// or of the C client.
class NatsSession {
 public:
  /// Connects to one of the endpoint's servers, trying all of them in random order until stop is requested.
  /// `writable` is the loop's. Throws std::runtime_error that names the endpoint and the cause.
  [[nodiscard]] static std::shared_ptr<NatsSession> connect(const NatsEndpoint& endpoint,
                                                            const std::shared_ptr<LossListener>& listener,
                                                            const std::function<void()>& writable,
                                                            const std::stop_token& stop = {});

  ~NatsSession();
  NatsSession(const NatsSession&) = delete;
  NatsSession& operator=(const NatsSession&) = delete;

  /// Tells it from all other sessions of the process; never 0, and later ones have higher numbers.
  [[nodiscard]] std::uint64_t number() const { return _number; }
  [[nodiscard]] natsConnection* handle() const { return _handle; }
  [[nodiscard]] SocketLoop& loop() { return _loop; }
  /// Whether it has not been lost, as far as the client has noticed.
  [[nodiscard]] bool usable() const { return _loop.attached(); }
  /// The largest message, headers included, that the server takes.
  [[nodiscard]] std::uint64_t maxPayload() const;
  /// What the client has told of its loss; may be empty.
  [[nodiscard]] std::string failure() const;

  /// Subscribes; the server knows before it gets anything that is published afterwards. At most so much waits
  /// to be taken. The subscription holds the session. Throws std::runtime_error.
  [[nodiscard]] static std::shared_ptr<natsSubscription> subscribe(
      const std::shared_ptr<NatsSession>& session, const std::string& subject, PendingLimits limits);

 private:
  /// Why a server could not be used.
  struct Refusal {
    std::string text;
    bool fromServer = false;  // it is there
  };

  NatsSession(const NatsEndpoint& endpoint, const std::shared_ptr<LossListener>& listener,
              const std::function<void()>& writable);
  [[nodiscard]] std::optional<Refusal> open(const NatsEndpoint& endpoint, const ServerAddress& server);
  void setOptions(natsOptions* options, const NatsEndpoint& endpoint, const ServerAddress& server);
  void release(natsSubscription* subscription);

  const std::uint64_t _number;
  SocketLoop _loop;
  natsConnection* _handle = nullptr;
};

}  // namespace kestrel::streams
