#include "transports/nats/NatsConnection.hpp"

#include <algorithm>
#include <stdexcept>
#include <thread>
#include <unordered_map>

#include <kestrel/datastreaming/Keys.hpp>
#include "transports/nats/Backoff.hpp"
#include "transports/shared/Frame.hpp"
#include "transports/shared/Log.hpp"

namespace kestrel::streams {

using datastreaming::DataSteamingErrorCodes;

namespace {

constexpr std::chrono::milliseconds connectTimeout{2000};
constexpr std::chrono::milliseconds lastFlush{1000};
constexpr std::chrono::milliseconds drainSlice{2};
constexpr std::chrono::milliseconds secureWriteDeadline{5000};
constexpr int readBuffer = 256 << 10;

/// The C client may call back after a connection was destroyed, so its callbacks get a number instead of a
/// pointer.
class Registry {
 public:
  static Registry& shared() {
    static auto* const registry = new Registry;  // callbacks may come while the process ends
    return *registry;
  }

  std::uintptr_t reserve() {
    const std::lock_guard lock(_mutex);
    return ++_last;
  }
  void add(std::uintptr_t id, const std::shared_ptr<NatsConnection>& connection) {
    const std::lock_guard lock(_mutex);
    _connections[id] = connection;
  }
  void remove(std::uintptr_t id) {
    const std::lock_guard lock(_mutex);
    _connections.erase(id);
  }
  std::shared_ptr<NatsConnection> find(void* id) {
    const std::lock_guard lock(_mutex);
    const auto found = _connections.find(reinterpret_cast<std::uintptr_t>(id));
    return found == _connections.end() ? nullptr : found->second.lock();
  }

 private:
  std::mutex _mutex;
  // Guarded by _mutex.
  std::uintptr_t _last = 0;
  std::unordered_map<std::uintptr_t, std::weak_ptr<NatsConnection>> _connections;
};

template <void (NatsConnection::*event)()>
void forward(natsConnection*, void* id) {
  if (const auto connection = Registry::shared().find(id)) ((*connection).*event)();
}

void forwardError(natsConnection*, natsSubscription*, natsStatus status, void* id) {
  if (const auto connection = Registry::shared().find(id)) connection->onError(status);
}

std::int64_t reconnectDelay(natsConnection*, int attempts, void* id) {
  const auto connection = Registry::shared().find(id);
  const auto first = connection ? connection->endpoint().firstBackoff : std::chrono::milliseconds(100);
  return backoff(first, attempts).count();
}

}  // namespace

std::shared_ptr<NatsConnection> NatsConnection::connect(const NatsEndpoint& endpoint) {
  std::shared_ptr<NatsConnection> connection(new NatsConnection(endpoint));
  Registry::shared().add(connection->_id, connection);
  connection->open();
  logSetup("connected to " + endpoint.shown);
  return connection;
}

NatsConnection::NatsConnection(const NatsEndpoint& endpoint)
    : _endpoint(endpoint),
      _id(Registry::shared().reserve()),
      _loop([this] { _outbox.pump(); }, endpoint.secure),
      _outbox(_loop) {}

NatsConnection::~NatsConnection() {
  Registry::shared().remove(_id);
  const auto deadline = Clock::now() + lastFlush;
  while (connected() && !_inbox.idle() && Clock::now() < deadline) std::this_thread::sleep_for(drainSlice);
  drain(lastFlush);
  _outbox.close("the connection was closed");
  _loop.stop();  // the client does not expect to be closed while it reads
  natsConnection_Close(_connection);
  _inbox.close("the connection was closed");
  natsConnection_Destroy(_connection);
}

void NatsConnection::release(natsSubscription* subscription) {
  natsSubscription_Unsubscribe(subscription);
  _loop.settle();
  natsSubscription_Destroy(subscription);
}

/// The client's own flush would do, were it not for a fault: called while the connection is away, it sends
/// the rest of a message that was cut off to the next server, which ends the connection for good.
void NatsConnection::confirm(std::chrono::milliseconds most) {
  const auto confirmed = EchoBook::expect(echoes(), _outbox, {});
  if (confirmed.wait_for(most) != std::future_status::ready) {
    throw std::runtime_error("the server at " + _endpoint.shown + " did not answer within " +
                             std::to_string(most.count()) + " ms");
  }
  (void)confirmed.get();
}

void NatsConnection::drain(std::chrono::milliseconds most) {
  const auto deadline = Clock::now() + most;
  while (connected() && !_outbox.empty() && Clock::now() < deadline) std::this_thread::sleep_for(drainSlice);
}

void NatsConnection::open() {
  natsOptions* raw = nullptr;
  require(natsOptions_Create(&raw), "creating options of the NATS client");
  const NatsOptions options(raw);
  setOptions(raw);
  if (_endpoint.secure) setSecurity(raw);
  _loop.install(raw);
  const natsStatus status = natsConnection_Connect(&_connection, raw);
  if (status != NATS_OK) throw std::runtime_error(failureText(status));
  if (natsConnection_HasHeaderSupport(_connection) != NATS_OK) {
    throw std::runtime_error(DataSteamingErrorCodes::CONNECTION_ERROR + ": the server at " + _endpoint.shown +
                             " does not support message headers; 2.2 or newer is needed");
  }
  _inbox.open(_connection);
  _outbox.open(_connection);
}

void NatsConnection::setOptions(natsOptions* options) {
  std::vector<const char*> servers;
  for (const std::string& server : _endpoint.servers) servers.push_back(server.c_str());
  void* const id = reinterpret_cast<void*>(_id);
  const auto ping = std::chrono::milliseconds(_endpoint.pingInterval).count();
  const int attempts = _endpoint.maxReconnects == 0 ? -1 : static_cast<int>(_endpoint.maxReconnects);
  const auto set = [](natsStatus status) { require(status, "setting an option of the NATS client"); };
  set(natsOptions_SetServers(options, servers.data(), static_cast<int>(servers.size())));
  set(natsOptions_SetName(options, "kestrel"));
  if (!_endpoint.token.empty()) set(natsOptions_SetToken(options, _endpoint.token.c_str()));
  set(natsOptions_SetTimeout(options, connectTimeout.count()));
  set(natsOptions_SetPingInterval(options, ping));
  set(natsOptions_SetMaxPingsOut(options, 2));
  set(natsOptions_SetMaxReconnect(options, attempts));
  set(natsOptions_SetCustomReconnectDelay(options, reconnectDelay, id));
  set(natsOptions_SetIOBufSize(options, readBuffer));
  // Without it a thread of the client's would look only every millisecond whether there is something to send.
  set(natsOptions_SetSendAsap(options, true));
  // What is published while the connection is away waits in the outbox, in its order.
  set(natsOptions_SetReconnectBufSize(options, 0));
  set(natsOptions_SetFailRequestsOnDisconnect(options, true));
  set(natsOptions_SetDisconnectedCB(options, forward<&NatsConnection::onDisconnected>, id));
  set(natsOptions_SetReconnectedCB(options, forward<&NatsConnection::onReconnected>, id));
  set(natsOptions_SetClosedCB(options, forward<&NatsConnection::onClosed>, id));
  set(natsOptions_SetErrorHandler(options, forwardError, id));
}

void NatsConnection::setSecurity(natsOptions* options) {
  const auto set = [&](natsStatus status, const std::string& what) {
    if (status == NATS_OK) return;
    throw std::runtime_error(DataSteamingErrorCodes::CONNECTION_ERROR + ": " + _endpoint.shown + ": " + what +
                             ": " + describe(status));
  };
  set(natsOptions_SetSecure(options, true), "setting up TLS");
  set(natsOptions_SetWriteDeadline(options, secureWriteDeadline.count()), "setting up TLS");
  if (!_endpoint.certificateAuthority.empty()) {
    const char* const file = _endpoint.certificateAuthority.c_str();
    set(natsOptions_LoadCATrustedCertificates(options, file), "loading 'tls_ca' " + std::string(file));
  }
  if (!_endpoint.certificate.empty()) {
    set(natsOptions_LoadCertificatesChain(options, _endpoint.certificate.c_str(),
                                          _endpoint.privateKey.c_str()),
        "loading 'tls_cert' and 'tls_key'");
  }
  const std::string& host = _endpoint.certificateHost;
  if (!host.empty()) set(natsOptions_SetExpectedHostname(options, host.c_str()), "setting 'tls_host'");
}

std::string NatsConnection::failureText(natsStatus status) const {
  const bool unauthorized = status == NATS_CONNECTION_AUTH_FAILED;
  const std::string& code = unauthorized && _endpoint.token.empty()
                                ? DataSteamingErrorCodes::TOKEN_NOT_FOUND
                                : DataSteamingErrorCodes::CONNECTION_ERROR;
  std::string cause = describe(status);
  if (unauthorized) {
    cause = _endpoint.token.empty() ? "the server asks for a token, and none is configured"
                                    : "the server does not accept the configured token";
  }
  return code + ": cannot connect to " + _endpoint.shown + ": " + cause;
}

bool NatsConnection::connected() const {
  const auto epoch = _loop.epoch();
  if (_connection == nullptr || epoch == 0) return false;
  if (_usableEpoch == epoch) return true;
  if (natsConnection_Status(_connection) != NATS_CONN_STATUS_CONNECTED) return false;
  _usableEpoch = epoch;
  return true;
}

bool NatsConnection::closed() const {
  return _connection == nullptr || natsConnection_Status(_connection) == NATS_CONN_STATUS_CLOSED;
}

std::string NatsConnection::lastFailure() const {
  const std::lock_guard lock(_mutex);
  return _lastFailure;
}

std::uint64_t NatsConnection::maxPayload() const {
  const auto epoch = _loop.epoch();
  if (epoch == 0 || _maxPayloadEpoch != epoch) {
    const std::int64_t limit = natsConnection_GetMaxPayload(_connection);
    _maxPayload = limit < 0 ? 0 : static_cast<std::uint64_t>(limit);
    _maxPayloadEpoch = epoch;
  }
  return _maxPayload;
}

void NatsConnection::watch(const std::weak_ptr<ConnectionWatcher>& watcher) {
  const std::lock_guard lock(_mutex);
  std::erase_if(_watchers, [](const auto& known) { return known.expired(); });
  _watchers.push_back(watcher);
}

std::shared_ptr<EchoBook> NatsConnection::echoes() {
  std::shared_ptr<EchoBook> book;
  {
    const std::lock_guard lock(_mutex);
    if (_echoes) return _echoes;
    book = std::make_shared<EchoBook>();
    book->open(_inbox.add(book));
    _echoes = book;
  }
  watch(book);
  return book;
}

void NatsConnection::countReconnectsOn(const std::shared_ptr<StreamContext>& context) {
  const std::lock_guard lock(_mutex);
  std::erase_if(_contexts, [&](const auto& known) { return known.expired() || known.lock() == context; });
  _contexts.push_back(context);
}

std::vector<std::shared_ptr<ConnectionWatcher>> NatsConnection::watchers() {
  const std::lock_guard lock(_mutex);
  std::vector<std::shared_ptr<ConnectionWatcher>> alive;
  for (const auto& known : _watchers) {
    if (auto watcher = known.lock()) alive.push_back(std::move(watcher));
  }
  return alive;
}

void NatsConnection::noteFailure() {
  const char* text = nullptr;
  natsConnection_GetLastError(_connection, &text);
  const std::lock_guard lock(_mutex);
  _lastFailure = text == nullptr || *text == '\0' ? "the connection was lost" : text;
}

void NatsConnection::onDisconnected() {
  noteFailure();
  logError("lost the connection to " + _endpoint.shown + ": " + lastFailure());
  for (const auto& watcher : watchers()) watcher->disconnected();
}

/// The client keeps its place in a message that was cut off, and takes what comes over the new connection for
/// the rest of it. With this much coming it gets to the end, finds nonsense and connects once more, to begin
/// anew; otherwise nothing would arrive until others have sent enough.
void NatsConnection::rinseParser() {
  try {
    echoes()->rinse(_outbox, maxPayload(), epoch());
  } catch (const std::exception& error) {
    logError(_endpoint.shown + ": " + error.what());
  }
}

void NatsConnection::onReconnected() {
  ++_reconnects;
  logError("the connection to " + _endpoint.shown + " is back");
  {
    const std::lock_guard lock(_mutex);
    for (const auto& known : _contexts) {
      if (const auto context = known.lock()) StreamCounters::add(context->counters.reconnects);
    }
  }
  _loop.wake();
  rinseParser();
  for (const auto& watcher : watchers()) watcher->reconnected();
}

void NatsConnection::onClosed() {
  noteFailure();
  const std::string why = "the connection to " + _endpoint.shown + " is closed for good: " + lastFailure();
  logError(why);
  _outbox.close(why);
  for (const auto& watcher : watchers()) watcher->closed(why);
}

void NatsConnection::onError(natsStatus status) {
  // A full subscription is told by its consumer, which knows the numbers.
  if (status != NATS_SLOW_CONSUMER) logError(_endpoint.shown + ": " + natsStatus_GetText(status));
}

}  // namespace kestrel::streams
