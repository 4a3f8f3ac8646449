#include "transports/nats/connection/NatsConnection.hpp"

#include <algorithm>
#include <exception>
#include <stdexcept>

#include "delivery/Log.hpp"
#include "delivery/ThreadName.hpp"
#include "sequencing/Frame.hpp"
#include "transports/StreamToken.hpp"
#include "transports/nats/connection/Backoff.hpp"
#include "transports/nats/connection/NatsSession.hpp"

namespace kestrel::streams {

namespace {

constexpr std::chrono::milliseconds lastFlush{1000};
constexpr std::chrono::milliseconds drainSlice{2};
constexpr std::chrono::seconds longLife{2};  // of a session; after shorter ones the waits go on growing

/// Answers, and what is stored, must reach nobody but this connection, and come from nobody but the server.
NatsEndpoint withOwnInboxes(NatsEndpoint endpoint) {
  endpoint.inboxPrefix += "." + randomToken();
  return endpoint;
}

template <class T>
using Listed = std::vector<std::weak_ptr<T>>;

template <class T>
void add(Listed<T>& listed, const std::shared_ptr<T>& one) {
  std::erase_if(listed, [](const auto& known) { return known.expired(); });
  listed.push_back(one);
}

template <class T>
std::vector<std::shared_ptr<T>> alive(const Listed<T>& listed) {
  std::vector<std::shared_ptr<T>> found;
  for (const auto& known : listed) {
    if (auto one = known.lock()) found.push_back(std::move(one));
  }
  return found;
}

}  // namespace

std::shared_ptr<NatsConnection> NatsConnection::connect(const NatsEndpoint& endpoint) {
  return connect(endpoint, &NatsSession::connect);
}

std::shared_ptr<NatsConnection> NatsConnection::connect(const NatsEndpoint& endpoint, SessionMaker maker) {
  std::shared_ptr<NatsConnection> connection(new NatsConnection(endpoint, std::move(maker)));
  connection->open();
  logSetup("connected to " + endpoint.shown);
  return connection;
}

NatsConnection::NatsConnection(const NatsEndpoint& endpoint, SessionMaker maker)
    : _endpoint(withOwnInboxes(endpoint)), _makeSession(std::move(maker)) {}

void NatsConnection::open() {
  auto session = _makeSession(_endpoint, _signal, [this] { _outbox.pump(); }, {});
  {
    const callbacks::MutexLock lock(_mutex);
    _session = session;
  }
  _inbox.open(subscribe(_inbox.subject(), {}));
  use(session);
  _keeper = std::jthread([this](const std::stop_token& stop) { keepUp(stop); });
}

NatsConnection::~NatsConnection() {
  const auto deadline = Clock::now() + lastFlush;
  while (_current != 0 && !_inbox.idle() && Clock::now() < deadline) std::this_thread::sleep_for(drainSlice);
  drain(lastFlush);
  _keeper.request_stop();
  if (_keeper.joinable()) _keeper.join();
  _standing->closed("the connection was closed");
  _outbox.close("the connection was closed");
  if (_session) _session->stop();  // whose thread uses the outbox
  _inbox.close("the connection was closed");
}

void NatsConnection::use(const std::shared_ptr<Session>& session) {
  auto former = session;  // released without the lock
  {
    const callbacks::MutexLock lock(_mutex);
    _session.swap(former);
  }
  for (const auto& subscription : subscriptions()) subscription->renew(session);
  _since = Clock::now();
  _maxPayload = session->maxPayload();
  _outbox.open(session);
  _current = session->number();
  _standing->connected();
}

void NatsConnection::keepUp(const std::stop_token& stop) {
  nameThisThread("kestrel-keeper");
  try {
    while (_signal->waitForLoss(session()->number(), stop)) {
      giveUpSession();
      if (reconnect(stop)) continue;
      if (!stop.stop_requested()) closeForGood();
      return;
    }
  } catch (const std::exception& error) {  // nothing is left to reconnect with
    _standing->away(error.what());
    closeForGood();
  }
}

void NatsConnection::giveUpSession() {
  const auto lost = session();
  _current = 0;
  const std::string fault = lost->failure();
  _standing->away(fault.empty() ? "the connection was lost" : "the connection was lost: " + fault);
  _outbox.suspend(lastFailure());
  lost->stop();
  logError("lost the connection to " + _endpoint.shown + (fault.empty() ? "" : ": " + fault));
  for (const auto& watcher : watchers()) watcher->disconnected();
}

bool NatsConnection::reconnect(const std::stop_token& stop) {
  _shortSessions = Clock::now() - _since < longLife ? _shortSessions + 1 : 0;
  for (int attempts = 1; _endpoint.maxReconnects == 0 || attempts <= _endpoint.maxReconnects; ++attempts) {
    if (!_signal->sleep(backoff(_endpoint.firstBackoff, _shortSessions + attempts), stop)) return false;
    if (attempt(stop)) return true;
  }
  return false;
}

bool NatsConnection::attempt(const std::stop_token& stop) {
  std::shared_ptr<Session> session;
  try {
    session = _makeSession(
        _endpoint, _signal, [this] { _outbox.pump(); }, stop);
    use(session);
  } catch (const std::exception& error) {
    if (session) session->stop();
    if (error.what() != lastFailure()) logError(error.what());
    _standing->away(error.what());
    _outbox.suspend(error.what());
    return false;
  }
  logSetup("the connection to " + _endpoint.shown + " is back");
  for (const auto& watcher : watchers()) watcher->reconnected();
  return true;
}

void NatsConnection::closeForGood() {
  const std::string why = "the connection to " + _endpoint.shown + " is closed for good: " + lastFailure();
  logError(why);
  _closed = true;
  _standing->closed(lastFailure());
  _outbox.close(why);
  for (const auto& subscription : subscriptions()) subscription->close();
  for (const auto& watcher : watchers()) watcher->closed(why);
}

std::shared_ptr<Session> NatsConnection::session() const {
  const callbacks::MutexLock lock(_mutex);
  return _session;
}

std::string NatsConnection::makeInbox() const {
  return _endpoint.inboxPrefix + "." + randomToken();
}

std::shared_ptr<Subscription> NatsConnection::subscribe(const std::string& subject, PendingLimits limits) {
  auto subscription = std::make_shared<Subscription>(subject, limits);
  {
    const callbacks::MutexLock lock(_mutex);
    add(_subscriptions, subscription);
  }
  subscription->renew(session());
  if (_closed) subscription->close();
  return subscription;
}

void NatsConnection::confirm(std::chrono::milliseconds most) {
  const auto book = echoes();
  const auto [number, confirmed] = book->expect({});
  EchoBook::ask(book, _outbox, number);
  if (confirmed.wait_for(most) != std::future_status::ready) {
    throw std::runtime_error("the server at " + _endpoint.shown + " did not answer within " +
                             std::to_string(most.count()) + " ms");
  }
  (void)confirmed.get();
}

void NatsConnection::drain(std::chrono::milliseconds most) {
  const auto deadline = Clock::now() + most;
  while (_current != 0 && !_outbox.empty() && Clock::now() < deadline)
    std::this_thread::sleep_for(drainSlice);
}

void NatsConnection::watch(const std::shared_ptr<ConnectionWatcher>& watcher) {
  const callbacks::MutexLock lock(_mutex);
  add(_watchers, watcher);
}

std::shared_ptr<EchoBook> NatsConnection::echoes() {
  const callbacks::MutexLock lock(_mutex);
  if (_echoes) return _echoes;
  auto book = std::make_shared<EchoBook>();
  book->open(_inbox.add(book));
  add<ConnectionWatcher>(_watchers, book);
  _echoes = std::move(book);
  return _echoes;
}

std::vector<std::shared_ptr<Subscription>> NatsConnection::subscriptions() const {
  const callbacks::MutexLock lock(_mutex);
  return alive(_subscriptions);
}

std::vector<std::shared_ptr<ConnectionWatcher>> NatsConnection::watchers() const {
  const callbacks::MutexLock lock(_mutex);
  return alive(_watchers);
}

}  // namespace kestrel::streams
