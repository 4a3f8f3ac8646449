#pragma once

#include <atomic>
#include <memory>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "delivery/ConnectionStanding.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/nats/connection/ConnectionWatcher.hpp"
#include "transports/nats/connection/EchoBook.hpp"
#include "transports/nats/connection/LossSignal.hpp"
#include "transports/nats/connection/NatsEndpoint.hpp"
#include "transports/nats/connection/ReplyInbox.hpp"
#include "transports/nats/connection/Session.hpp"
#include "transports/nats/connection/Subscription.hpp"
#include "transports/outgoing/Outbox.hpp"

namespace kestrel::streams {

/// The connection to the servers of an endpoint: one session after the other, as a thread of its own makes a
/// new one when the present one is lost. Safe from any thread. Held by shared pointers; whoever lets go last
/// closes it, within some seconds.
class NatsConnection {
 public:
  /// Connects. Throws std::runtime_error that names the endpoint and the cause.
  [[nodiscard]] static std::shared_ptr<NatsConnection> connect(const NatsEndpoint& endpoint);
  /// With another way to make sessions.
  [[nodiscard]] static std::shared_ptr<NatsConnection> connect(const NatsEndpoint& endpoint,
                                                               SessionMaker maker);

  ~NatsConnection();
  NatsConnection(const NatsConnection&) = delete;
  NatsConnection& operator=(const NatsConnection&) = delete;

  /// What was given, with an inbox prefix of its own below the given one.
  [[nodiscard]] const NatsEndpoint& endpoint() const { return _endpoint; }
  [[nodiscard]] Outbox& outbox() { return _outbox; }
  [[nodiscard]] ReplyInbox& inbox() { return _inbox; }
  /// For those who wait until the server has accepted something.
  [[nodiscard]] std::shared_ptr<EchoBook> echoes();

  /// The present session, or the one that was lost last; never empty.
  [[nodiscard]] std::shared_ptr<Session> session() const;
  /// The number of the present one, 0 while there is none.
  [[nodiscard]] std::uint64_t currentSession() const { return _current; }
  /// The name of a new inbox: whoever does not see the messages of this connection cannot know it.
  [[nodiscard]] std::string makeInbox() const;
  /// Subscribes, at every session to come too, before anything that waits in the outbox is sent over it.
  /// Throws std::runtime_error.
  [[nodiscard]] std::shared_ptr<Subscription> subscribe(const std::string& subject, PendingLimits limits);
  /// Waits until the server has answered to everything before, at most that long; throws std::runtime_error.
  void confirm(std::chrono::milliseconds most);
  /// Waits until all that was posted has gone to the system, at most that long and while there is a session.
  void drain(std::chrono::milliseconds most);

  /// Whether no session will follow.
  [[nodiscard]] bool closed() const { return _closed; }
  /// Why the newest session was lost, or could not be made.
  [[nodiscard]] std::string lastFailure() const { return _standing->lastFailure(); }
  /// The largest message, headers included, that the server takes, or took last.
  [[nodiscard]] std::uint64_t maxPayload() const { return _maxPayload; }

  /// The watcher is told until it is destroyed.
  void watch(const std::shared_ptr<ConnectionWatcher>& watcher);
  /// How it stands, for those who may outlive it.
  [[nodiscard]] std::shared_ptr<const ConnectionStanding> standing() const { return _standing; }

 private:
  NatsConnection(const NatsEndpoint& endpoint, SessionMaker maker);
  void open();
  void use(const std::shared_ptr<Session>& session);
  // On the thread that keeps the connection up.
  void keepUp(const std::stop_token& stop);
  void giveUpSession();
  [[nodiscard]] bool reconnect(const std::stop_token& stop);
  [[nodiscard]] bool attempt(const std::stop_token& stop);
  void closeForGood();

  [[nodiscard]] std::vector<std::shared_ptr<Subscription>> subscriptions() const;
  [[nodiscard]] std::vector<std::shared_ptr<ConnectionWatcher>> watchers() const;

  const NatsEndpoint _endpoint;
  const SessionMaker _makeSession;
  const std::shared_ptr<ConnectionStanding> _standing = std::make_shared<ConnectionStanding>();
  const std::shared_ptr<LossSignal> _signal = std::make_shared<LossSignal>();
  Outbox _outbox;
  ReplyInbox _inbox{makeInbox()};
  std::atomic<std::uint64_t> _current{0};
  std::atomic<std::uint64_t> _maxPayload{0};
  std::atomic<bool> _closed{false};
  // Set by open(), then the keeper's own.
  TimePoint _since{};      // when the present session began
  int _shortSessions = 0;  // in a row

  mutable callbacks::Mutex _mutex;
  std::shared_ptr<Session> _session KESTREL_GUARDED_BY(_mutex);
  std::vector<std::weak_ptr<Subscription>> _subscriptions KESTREL_GUARDED_BY(_mutex);
  std::shared_ptr<EchoBook> _echoes KESTREL_GUARDED_BY(_mutex);  // made when first asked for
  std::vector<std::weak_ptr<ConnectionWatcher>> _watchers KESTREL_GUARDED_BY(_mutex);

  std::jthread _keeper;
};

}  // namespace kestrel::streams
