#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "transports/nats/ConnectionWatcher.hpp"
#include "transports/nats/EchoBook.hpp"
#include "transports/nats/NatsEndpoint.hpp"
#include "transports/nats/NatsHandles.hpp"
#include "transports/nats/Outbox.hpp"
#include "transports/nats/ReplyInbox.hpp"
#include "transports/nats/SocketLoop.hpp"
#include "transports/shared/StreamContext.hpp"

namespace kestrel::streams {

/// One connection to a server of the endpoint, which comes back by itself when it is lost. Safe from any
/// thread. Held by shared pointers; whoever lets go last closes it, within some seconds.
class NatsConnection {
 public:
  /// Connects. Throws std::runtime_error that names the endpoint and the cause.
  [[nodiscard]] static std::shared_ptr<NatsConnection> connect(const NatsEndpoint& endpoint);

  ~NatsConnection();
  NatsConnection(const NatsConnection&) = delete;
  NatsConnection& operator=(const NatsConnection&) = delete;

  [[nodiscard]] const NatsEndpoint& endpoint() const { return _endpoint; }
  [[nodiscard]] natsConnection* handle() const { return _connection; }
  [[nodiscard]] Outbox& outbox() { return _outbox; }
  [[nodiscard]] ReplyInbox& inbox() { return _inbox; }
  /// For those who wait until the server has accepted something; throws std::runtime_error.
  [[nodiscard]] std::shared_ptr<EchoBook> echoes();

  /// Ends and frees a subscription.
  void release(natsSubscription* subscription);
  /// Waits until the server has answered to everything before, at most that long; throws std::runtime_error.
  void confirm(std::chrono::milliseconds most);
  /// Waits until all that was posted has gone to the system, at most that long.
  void drain(std::chrono::milliseconds most);

  [[nodiscard]] bool connected() const;
  [[nodiscard]] bool closed() const;
  /// Why it closed for good, or was lost last.
  [[nodiscard]] std::string lastFailure() const;
  /// The largest message, headers included, that the server takes now.
  [[nodiscard]] std::uint64_t maxPayload() const;
  /// As SocketLoop::epoch().
  [[nodiscard]] std::uint64_t epoch() const { return _loop.epoch(); }
  /// How often it has come back.
  [[nodiscard]] std::uint64_t reconnects() const { return _reconnects; }

  /// The watcher is told until it is destroyed.
  void watch(const std::weak_ptr<ConnectionWatcher>& watcher);
  /// Reconnects are counted on that stream, once however often it is given.
  void countReconnectsOn(const std::shared_ptr<StreamContext>& context);

  // What the C client reports; for its callbacks.
  void onDisconnected();
  void onReconnected();
  void onClosed();
  void onError(natsStatus status);

 private:
  explicit NatsConnection(const NatsEndpoint& endpoint);
  void open();
  void setOptions(natsOptions* options);
  void setSecurity(natsOptions* options);
  [[nodiscard]] std::string failureText(natsStatus status) const;
  [[nodiscard]] std::vector<std::shared_ptr<ConnectionWatcher>> watchers();
  void noteFailure();
  void rinseParser();

  const NatsEndpoint _endpoint;
  const std::uintptr_t _id;  // what the C client's callbacks know the connection by
  SocketLoop _loop;          // its thread uses the outbox, but only while there is a connection
  Outbox _outbox;
  ReplyInbox _inbox;
  natsConnection* _connection = nullptr;
  std::atomic<std::uint64_t> _reconnects{0};

  // What the client has said, and of which connection: it does not answer while it writes, and writing over
  // TLS may take its time.
  mutable std::atomic<std::uint64_t> _usableEpoch{0};
  mutable std::atomic<std::uint64_t> _maxPayload{0};
  mutable std::atomic<std::uint64_t> _maxPayloadEpoch{0};

  mutable std::mutex _mutex;
  // Guarded by _mutex.
  std::string _lastFailure;
  std::shared_ptr<EchoBook> _echoes;  // made when first asked for
  std::vector<std::weak_ptr<ConnectionWatcher>> _watchers;
  std::vector<std::weak_ptr<StreamContext>> _contexts;
};

}  // namespace kestrel::streams
