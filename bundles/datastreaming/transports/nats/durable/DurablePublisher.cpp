#include "transports/nats/durable/DurablePublisher.hpp"

#include <stdexcept>
#include <utility>

#include "transports/nats/durable/StoreReply.hpp"
#include "transports/nats/wire/OutgoingMessage.hpp"

namespace kestrel::streams {

namespace {

PublishLedger::Limits limitsOf(const NatsEndpoint& endpoint) {
  PublishLedger::Limits limits;
  limits.retry = endpoint.retry;
  return limits;
}

}  // namespace

std::shared_ptr<DurablePublisher> DurablePublisher::create(NatsConnection& connection,
                                                           std::shared_ptr<StreamContext> context,
                                                           std::shared_ptr<ErrorOutlet> errors) {
  std::shared_ptr<DurablePublisher> publisher(
      new DurablePublisher(connection, std::move(context), std::move(errors)));
  publisher->_replyPrefix = connection.inbox().add(publisher);
  connection.watch(publisher);
  if (connection.closed()) publisher->closed(connection.lastFailure());  // it may have been just before
  return publisher;
}

DurablePublisher::DurablePublisher(NatsConnection& connection, std::shared_ptr<StreamContext> context,
                                   std::shared_ptr<ErrorOutlet> errors)
    : _connection(connection),
      _context(std::move(context)),
      _errors(std::move(errors)),
      _ledger(limitsOf(connection.endpoint())) {}

std::optional<std::string> DurablePublisher::submit(PublishLedger::Entry entry) {
  const callbacks::MutexLock lock(_mutex);
  if (_closed) return _closed;
  if (!_ledger.hasRoom(entry.bytes)) {
    return "it takes " + std::to_string(entry.bytes) + " bytes, and of the " +
           std::to_string(_ledger.limits().bytes) + " bytes that may wait to be stored " +
           std::to_string(_ledger.bytes()) + " are taken";
  }
  _ledger.add(std::move(entry));
  publish();
  return std::nullopt;
}

/// Under _mutex, so that messages reach the connection in their order.
void DurablePublisher::publish() {
  const std::uint64_t session = _connection.currentSession();
  if (session == 0) return;
  if (std::exchange(_session, session) != session) beginSession();
  while (auto message = _ledger.next(Clock::now())) {
    const auto size = static_cast<std::uint64_t>(natsMsg_GetDataLength(message.get()));
    if (!_connection.outbox().post({std::move(message), size, 0, nullptr, session})) continue;
    _ledger.unpublish();  // no room; the next beat tries again
    return;
  }
}

/// Nothing new may go to a new session before what the old one may have lost; and its server may take less.
void DurablePublisher::beginSession() {
  _ledger.restart();
  const std::uint64_t limit = _connection.maxPayload();
  for (auto& entry : _ledger.takeLargerThan(limit)) {
    const std::string why = tooLarge(entry.wireSize, 0, limit);
    std::vector<PublishLedger::Entry> one;
    one.push_back(std::move(entry));
    giveUp(std::move(one), why);
  }
}

void DurablePublisher::replied(std::uint64_t number, natsMsg* reply) {
  const StoreReply answer = readStoreReply(reply);
  std::optional<PublishLedger::Entry> done;
  {
    const callbacks::MutexLock lock(_mutex);
    if (answer.error.empty()) {
      done = _ledger.stored(number);
    } else {
      _ledger.failed(number, answer.error, Clock::now());
    }
    publish();
  }
  if (done && done->stored) done->stored->set_value(std::to_string(answer.sequence));
}

bool DurablePublisher::unreceived() {
  const callbacks::MutexLock lock(_mutex);
  return _ledger.suspend("no server holds the stream's store at the moment", Clock::now());
}

bool DurablePublisher::beat() {
  std::vector<PublishLedger::Entry> expired;
  std::string why;
  bool needed = true;
  {
    const callbacks::MutexLock lock(_mutex);
    expired = _ledger.tick(Clock::now());
    why = _ledger.lastFailure();
    publish();
    needed = !_retired || !_ledger.empty();
  }
  if (why.empty())
    why = _connection.currentSession() != 0 ? "the server did not answer" : "the connection is away";
  giveUp(std::move(expired), "within " + std::to_string(_connection.endpoint().retry.count()) + " s; " + why);
  return needed;
}

bool DurablePublisher::idle() {
  const callbacks::MutexLock lock(_mutex);
  return _ledger.empty();
}

void DurablePublisher::abandon(const std::string& why) {
  std::vector<PublishLedger::Entry> all;
  {
    const callbacks::MutexLock lock(_mutex);
    _closed = why;
    all = _ledger.takeAll();
  }
  giveUp(std::move(all), why);
}

void DurablePublisher::reconnected() {
  const callbacks::MutexLock lock(_mutex);
  publish();
}

void DurablePublisher::giveUp(std::vector<PublishLedger::Entry> entries, const std::string& why) {
  if (entries.empty()) return;
  StreamCounters::add(_context->counters.lost, entries.size());
  const std::string text =
      std::to_string(entries.size()) + " messages could not be stored and are given up: " + why;
  _errors->report(text);
  for (auto& entry : entries) {
    if (entry.stored) entry.stored->set_exception(std::make_exception_ptr(std::runtime_error(text)));
  }
}

}  // namespace kestrel::streams
