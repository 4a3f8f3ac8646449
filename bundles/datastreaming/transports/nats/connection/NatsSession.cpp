#include "transports/nats/connection/NatsSession.hpp"

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <numeric>
#include <random>
#include <stdexcept>
#include <thread>
#include <unordered_map>
#include <vector>

#include <kestrel/datastreaming/Keys.hpp>
#include "delivery/Log.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"

namespace kestrel::streams {

using datastreaming::lasting::DataSteamingErrorCodes;

namespace {

constexpr std::chrono::milliseconds connectTimeout{2000};
constexpr std::chrono::milliseconds secureWriteDeadline{5000};
constexpr int readBuffer = 256 << 10;

/// The C client may call back after a connection was destroyed, so its callbacks get a number instead of a
/// pointer.
class Sessions {
 public:
  static Sessions& shared() {
    static auto* const sessions = new Sessions;  // callbacks may come while the process ends
    return *sessions;
  }

  std::uint64_t reserve() { return ++_last; }
  void add(std::uint64_t session, const std::string& shown) {
    const callbacks::MutexLock lock(_mutex);
    _entries[session].shown = shown;
  }
  /// Returns how its server is shown; empty if it has gone.
  std::string note(std::uint64_t session, const std::string& fault) {
    const callbacks::MutexLock lock(_mutex);
    const auto found = _entries.find(session);
    if (found == _entries.end()) return {};
    found->second.fault = fault;
    return found->second.shown;
  }
  void remove(std::uint64_t session) {
    const callbacks::MutexLock lock(_mutex);
    _entries.erase(session);
    _removed.notify_all();
  }
  void waitForRemoval(void* session) {
    callbacks::UniqueLock lock(_mutex);
    _removed.wait(lock.native(), [&]() KESTREL_REQUIRES(_mutex) {
      return !_entries.contains(reinterpret_cast<std::uintptr_t>(session));
    });
  }
  std::string fault(std::uint64_t session) {
    const callbacks::MutexLock lock(_mutex);
    return _entries[session].fault;
  }

 private:
  struct Entry {
    std::string shown;
    std::string fault;  // what the client has told last
  };

  std::atomic<std::uint64_t> _last{0};
  callbacks::Mutex _mutex;
  std::condition_variable _removed;
  std::unordered_map<std::uint64_t, Entry> _entries KESTREL_GUARDED_BY(_mutex);
};

/// The client asks here how long to wait, on a thread of its own, before it connects again. It never shall;
/// and it must not wait for long, for it may miss that it is closed. So it is kept here until then.
std::int64_t neverReconnect(natsConnection* connection, int, void* session) {
  Sessions::shared().waitForRemoval(session);
  while (!natsConnection_IsClosed(connection)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return 1;
}

void logFault(natsConnection*, natsSubscription*, natsStatus status, void* session) {
  if (status == NATS_SLOW_CONSUMER) return;  // told by its consumer, which knows the numbers
  const std::string fault = natsStatus_GetText(status);
  const std::string shown = Sessions::shared().note(reinterpret_cast<std::uintptr_t>(session), fault);
  if (!shown.empty()) logError(shown + ": " + fault);
}

void setSecurity(natsOptions* options, const NatsEndpoint& endpoint) {
  const auto set = [&](natsStatus status, const std::string& what) {
    if (status == NATS_OK) return;
    throw std::runtime_error(DataSteamingErrorCodes::CONNECTION_ERROR + ": " + endpoint.shown + ": " + what +
                             ": " + describe(status));
  };
  set(natsOptions_SetSecure(options, true), "setting up TLS");
  set(natsOptions_SetWriteDeadline(options, secureWriteDeadline.count()), "setting up TLS");
  if (!endpoint.certificateAuthority.empty()) {
    const char* const file = endpoint.certificateAuthority.c_str();
    set(natsOptions_LoadCATrustedCertificates(options, file), "loading 'tls_ca' " + std::string(file));
  }
  if (!endpoint.certificate.empty()) {
    set(natsOptions_LoadCertificatesChain(options, endpoint.certificate.c_str(), endpoint.privateKey.c_str()),
        "loading 'tls_cert' and 'tls_key'");
  }
  const std::string& host = endpoint.certificateHost;
  if (!host.empty()) set(natsOptions_SetExpectedHostname(options, host.c_str()), "setting 'tls_host'");
}

void set(natsStatus status) {
  require(status, "setting an option of the NATS client");
}

/// The client goes over to TLS by itself where the server wants it. Nobody here would know, and the loop
/// would drive the connection in the wrong way.
void forbidSecurity(natsOptions* options) {
  // RFC 6761, 6.4: no certificate carries such a name.
  set(natsOptions_SetExpectedHostname(options, "no-tls.invalid"));
}

/// Why a server that is there could not be used; empty if only the client knows.
std::string refusalText(natsStatus status, const NatsEndpoint& endpoint, const ServerAddress& server) {
  if (!endpoint.secure && (status == NATS_SSL_ERROR || status == NATS_SECURE_CONNECTION_REQUIRED)) {
    return "Secure Connection Required, the server wants TLS: use tls://";
  }
  if (status == NATS_SECURE_CONNECTION_WANTED) return "the server has no TLS: use nats://";
  if (status != NATS_CONNECTION_AUTH_FAILED) return {};
  if (!server.user.empty()) return "the server does not accept the user or password of the endpoint";
  return endpoint.token.empty() ? "the server asks for a token, and none is configured"
                                : "the server does not accept the configured token";
}

std::string failureText(natsStatus status, const NatsEndpoint& endpoint, const ServerAddress& server) {
  const bool anonymous = endpoint.token.empty() && server.user.empty();
  const std::string& code = status == NATS_CONNECTION_AUTH_FAILED && anonymous
                                ? DataSteamingErrorCodes::TOKEN_NOT_FOUND
                                : DataSteamingErrorCodes::CONNECTION_ERROR;
  const std::string cause = refusalText(status, endpoint, server);
  return code + ": cannot connect to " + endpoint.shown + ": " + (cause.empty() ? describe(status) : cause);
}

/// Sets the client's library up.
///
/// It frees every message on a thread of its own, which it wakes for it, and which then takes the core from
/// the thread that works, for a single message. So that thread is made with a policy that lets nobody be
/// interrupted for it. It inherits it from its maker, as do those for timers and callbacks: none of them is
/// on the way of a message.
void setUpClient() {
  static const bool once = [] {
    std::thread([] {
      const sched_param normal{};
      (void)::sched_setscheduler(0, SCHED_BATCH, &normal);  // where it is forbidden, it takes more time
      nats_Open(-1);
    }).join();
    return true;
  }();
  (void)once;
}

std::vector<std::size_t> randomOrder(std::size_t count) {
  std::vector<std::size_t> order(count);
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::shuffle(order.begin(), order.end(), std::minstd_rand(std::random_device{}()));
  return order;
}

}  // namespace

std::shared_ptr<NatsSession> NatsSession::connect(const NatsEndpoint& endpoint,
                                                  const std::shared_ptr<LossListener>& listener,
                                                  const std::function<void()>& writable,
                                                  const std::stop_token& stop) {
  setUpClient();
  std::vector<Refusal> refusals(endpoint.servers.size(), {"not tried", false});
  for (const std::size_t index : randomOrder(endpoint.servers.size())) {
    if (stop.stop_requested()) break;
    std::shared_ptr<NatsSession> session(new NatsSession(endpoint, listener, writable));
    auto refusal = session->open(endpoint, endpoint.servers[index]);
    if (!refusal) return session;
    refusals[index] = std::move(*refusal);
  }
  // A server that is there and refuses us says more than one that is not there.
  const auto telling = std::ranges::find(refusals, true, &Refusal::fromServer);
  throw std::runtime_error(telling != refusals.end() ? telling->text : refusals.front().text);
}

NatsSession::NatsSession(const NatsEndpoint& endpoint, const std::shared_ptr<LossListener>& listener,
                         const std::function<void()>& writable)
    : _number(Sessions::shared().reserve()),
      _loop(
          writable, [listener, number = _number] { listener->lost(number); }, endpoint.secure) {
  Sessions::shared().add(_number, endpoint.shown);
}

NatsSession::~NatsSession() {
  _loop.stop();  // the client does not expect to be closed while it reads
  _loop.hangUp();
  Sessions::shared().remove(_number);
  if (const auto pass = _loop.enter())
    natsConnection_Destroy(_handle);  // else the end of the process takes it
}

std::optional<NatsSession::Refusal> NatsSession::open(const NatsEndpoint& endpoint,
                                                      const ServerAddress& server) {
  natsOptions* raw = nullptr;
  require(natsOptions_Create(&raw), "creating options of the NATS client");
  const NatsOptions options(raw);
  setOptions(raw, endpoint, server);
  setCallbacks(raw);
  if (endpoint.secure) {
    setSecurity(raw, endpoint);
  } else {
    forbidSecurity(raw);
  }
  _loop.install(raw);
  const auto pass = _loop.enter();
  if (!pass) return Refusal{"the process ends", false};
  const natsStatus status = natsConnection_Connect(&_handle, raw);
  if (status != NATS_OK) return Refusal{failureText(status, endpoint, server), status != NATS_NO_SERVER};
  if (natsConnection_HasHeaderSupport(_handle) == NATS_OK) return std::nullopt;
  return Refusal{DataSteamingErrorCodes::CONNECTION_ERROR + ": the server at " + endpoint.shown +
                     " does not support message headers; 2.2 or newer is needed",
                 true};
}

void NatsSession::setOptions(natsOptions* options, const NatsEndpoint& endpoint,
                             const ServerAddress& server) const {
  const auto ping = std::chrono::milliseconds(endpoint.pingInterval).count();
  set(natsOptions_SetURL(options, server.url.c_str()));
  set(natsOptions_SetName(options, "kestrel"));
  set(natsOptions_SetCustomInboxPrefix(options, endpoint.inboxPrefix.c_str()));
  if (!server.password.empty()) {
    set(natsOptions_SetUserInfo(options, server.user.c_str(), server.password.c_str()));
  } else if (const std::string& token = server.user.empty() ? endpoint.token : server.user; !token.empty()) {
    set(natsOptions_SetToken(options, token.c_str()));
  }
  set(natsOptions_SetTimeout(options, connectTimeout.count()));
  set(natsOptions_SetPingInterval(options, ping));
  set(natsOptions_SetMaxPingsOut(options, 2));
  set(natsOptions_SetIOBufSize(options, readBuffer));
  // Without it a thread of the client's would look only every millisecond whether there is something to send.
  set(natsOptions_SetSendAsap(options, true));
}

void NatsSession::setCallbacks(natsOptions* options) const {
  void* const id = reinterpret_cast<void*>(_number);
  // Forbidden to reconnect, the client would drop what has come in and was not taken. With a single server it
  // asks how long to wait before it tries.
  set(natsOptions_SetMaxReconnect(options, -1));
  set(natsOptions_SetIgnoreDiscoveredServers(options, true));
  set(natsOptions_SetCustomReconnectDelay(options, neverReconnect, id));
  set(natsOptions_SetReconnectBufSize(options, 0));
  set(natsOptions_SetFailRequestsOnDisconnect(options, true));
  // The client tells of the end of a connection on a thread that holds on to it, perhaps as the last one and
  // while the process ends. The loop learns of it sooner, so the client is not asked.
  set(natsOptions_SetErrorHandler(options, logFault, id));
}

std::uint64_t NatsSession::maxPayload() const {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(0, natsConnection_GetMaxPayload(_handle)));
}

std::string NatsSession::failure() const {
  std::string told = Sessions::shared().fault(_number);
  const char* last = nullptr;
  if (told.empty() && natsConnection_GetLastError(_handle, &last) != NATS_OK && last != nullptr) told = last;
  return told;
}

Written NatsSession::append(const Message& message) {
  const SocketLoop::FlushesItself mark;
  switch (const natsStatus status =
              natsConnection_PublishMsg(_handle, static_cast<natsMsg*>(message.get()))) {
    case NATS_OK:
      return {};
    case NATS_INSUFFICIENT_BUFFER:
    case NATS_CONNECTION_CLOSED:
    case NATS_CONNECTION_DISCONNECTED:
      return {Written::Kind::lost};
    default:
      return {Written::Kind::refused, "the NATS client refused it: " + describe(status)};
  }
}

/// A subscription of the client's.
class NatsSession::SubscriptionFeed final : public Feed {
 public:
  SubscriptionFeed(std::shared_ptr<NatsSession> session, const std::string& subject)
      : _session(std::move(session)) {
    require(natsConnection_SubscribeSync(&_handle, _session->_handle, subject.c_str()), "subscribing");
  }
  ~SubscriptionFeed() override {
    natsSubscription_Unsubscribe(_handle);
    _session->_loop.settle();
    natsSubscription_Destroy(_handle);
  }
  SubscriptionFeed(const SubscriptionFeed&) = delete;
  SubscriptionFeed& operator=(const SubscriptionFeed&) = delete;

  void limit(PendingLimits limits) {
    require(natsSubscription_SetPendingLimits(_handle, limits.messages, limits.bytes),
            "setting the limits of a subscription");
  }
  natsStatus next(natsMsg** message, std::chrono::milliseconds wait) override {
    return natsSubscription_NextMsg(message, _handle, wait.count());
  }
  std::uint64_t waiting() override {
    int messages = 0;
    if (natsSubscription_GetPending(_handle, &messages, nullptr) != NATS_OK) return 0;
    return static_cast<std::uint64_t>(std::max(messages, 0));
  }
  std::uint64_t dropped() override {
    std::int64_t messages = 0;
    if (natsSubscription_GetDropped(_handle, &messages) != NATS_OK) return 0;
    return static_cast<std::uint64_t>(std::max<std::int64_t>(messages, 0));
  }
  void end() override { natsSubscription_Unsubscribe(_handle); }

 private:
  const std::shared_ptr<NatsSession> _session;
  natsSubscription* _handle = nullptr;
};

std::shared_ptr<Feed> NatsSession::subscribe(const std::string& subject, PendingLimits limits) {
  auto feed = std::make_shared<SubscriptionFeed>(shared_from_this(), subject);
  feed->limit(limits);
  return feed;
}

}  // namespace kestrel::streams
