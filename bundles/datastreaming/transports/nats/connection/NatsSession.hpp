#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "transports/nats/connection/Session.hpp"
#include "transports/nats/connection/SocketLoop.hpp"

namespace kestrel::streams {

/// One connection of the C client to one server.
///
/// The client could connect again by itself. But driven by a loop that is not its own it keeps its place in a
/// message that was cut off, and takes what the next connection brings for the rest of it: nats.c #1007, not
/// mended in 3.4, the oldest one supported. Until the oldest one has it mended, each connection gets a client
/// object of its own (docs/decisions/0001-the-client-never-reconnects.md). The one that was lost stays for as
/// long as somebody holds it: what has come in over it can still be taken from its subscriptions, unless the
/// server has ended it with an error that the client takes for the end of everything.
///
/// Shared by all who use it. Whoever lets go last closes it, at once; that must not be a thread of the loop
/// or of the C client.
class NatsSession final : public Session, public std::enable_shared_from_this<NatsSession> {
 public:
  /// Connects to one of the endpoint's servers, trying all of them in random order until stop is requested.
  /// `writable` is the loop's. Throws std::runtime_error that names the endpoint and the cause.
  [[nodiscard]] static std::shared_ptr<NatsSession> connect(const NatsEndpoint& endpoint,
                                                            const std::shared_ptr<LossListener>& listener,
                                                            const std::function<void()>& writable,
                                                            const std::stop_token& stop);

  ~NatsSession() override;
  NatsSession(const NatsSession&) = delete;
  NatsSession& operator=(const NatsSession&) = delete;

  [[nodiscard]] std::uint64_t number() const override { return _number; }
  [[nodiscard]] bool usable() const override { return _loop.attached(); }
  [[nodiscard]] std::uint64_t maxPayload() const override;
  [[nodiscard]] std::string failure() const override;
  [[nodiscard]] natsConnection* handle() const override { return _handle; }
  [[nodiscard]] Written append(const Message& message) override;
  [[nodiscard]] int buffered() const override { return natsConnection_Buffered(_handle); }
  bool flush() override { return _loop.flush(); }
  [[nodiscard]] bool loopWrites() const override { return _loop.writesAlone(); }
  void wake() override { _loop.wake(); }
  void wakeLater() override { _loop.wakeLater(); }
  [[nodiscard]] std::shared_ptr<Feed> subscribe(const std::string& subject, PendingLimits limits) override;
  void stop() override { _loop.stop(); }

 private:
  class SubscriptionFeed;

  /// Why a server could not be used.
  struct Refusal {
    std::string text;
    bool fromServer = false;  // it is there
  };

  NatsSession(const NatsEndpoint& endpoint, const std::shared_ptr<LossListener>& listener,
              const std::function<void()>& writable);
  [[nodiscard]] std::optional<Refusal> open(const NatsEndpoint& endpoint, const ServerAddress& server);
  void setOptions(natsOptions* options, const NatsEndpoint& endpoint, const ServerAddress& server) const;
  void setCallbacks(natsOptions* options) const;

  const std::uint64_t _number;
  SocketLoop _loop;
  natsConnection* _handle = nullptr;
};

}  // namespace kestrel::streams
