#include "transports/nats/durable/DurableReceiver.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

#include "delivery/Log.hpp"
#include "transports/nats/wire/OutgoingMessage.hpp"

namespace kestrel::streams {

namespace {

constexpr std::chrono::milliseconds slice{250};  // how soon a reconnect is noticed
constexpr std::chrono::milliseconds handover{1500};
constexpr std::chrono::milliseconds confirmTime{1000};
constexpr std::string_view acknowledgement = "+ACK";
constexpr std::uint64_t leastWaiting = 64ULL << 20;  // for pieces that overtook one that is tried again

PayloadSequencer::Limits durableLimits(const NatsEndpoint& endpoint) {
  PayloadSequencer::Limits limits;
  // Its producer may be trying to store the next piece for that long.
  limits.silence = endpoint.retry + std::chrono::seconds(10);
  // As much as can be stored may be of payloads that are not whole yet.
  limits.heldBytes = std::max(limits.heldBytes, static_cast<std::uint64_t>(endpoint.maxBytes));
  return limits;
}

}  // namespace

/// The connection was lost, and perhaps came back, during a step that needs one session.
class SessionLost : public std::runtime_error {
 public:
  SessionLost() : std::runtime_error("the connection was lost meanwhile") {}
};

/// Acknowledges one message when the pipeline is done with it, on the delivery thread.
class DurableReceiver::Settlement final : public Receipt {
 public:
  Settlement(std::weak_ptr<DurableReceiver> receiver, std::uint64_t number)
      : _receiver(std::move(receiver)), _number(number) {}

  void settle() noexcept override {
    try {
      if (const auto receiver = _receiver.lock()) receiver->settled(_number);
    } catch (...) {  // it comes again, and is then known
    }
  }

 private:
  const std::weak_ptr<DurableReceiver> _receiver;
  const std::uint64_t _number;
};

DurableReceiver::DurableReceiver(std::shared_ptr<StreamContext> context,
                                 const std::shared_ptr<NatsConnection>& connection,
                                 std::shared_ptr<const DurableStore> store)
    : NatsReceiver(std::move(context), connection, durableLimits(connection->endpoint())),
      _store(std::move(store)),
      _subjects(_store->names()),
      _intake({.patience = connection->endpoint().retry,
               .waitingBytes =
                   std::max(leastWaiting, static_cast<std::uint64_t>(connection->endpoint().maxBytes)),
               .cost = [](const Incoming& incoming) { return memoryOf(incoming.message.get()); }}) {}

/// An earlier consumer, of this process or of one that was killed, may be about to be noticed as gone, and a
/// connection that is away may be about to come back.
void DurableReceiver::open() {
  for (const auto begun = Clock::now();;) {
    try {
      return attach(true);
    } catch (const ReaderExists&) {
      if (Clock::now() >= begun + handover) throw;
    } catch (const SessionLost&) {
      if (Clock::now() >= begun + confirmTimeout) throw;
    }
    std::this_thread::sleep_for(slice / 5);
  }
}

/// When it has returned, the server of that session has the subscription.
std::shared_ptr<Feed> DurableReceiver::subscribe(const std::shared_ptr<Session>& session,
                                                 const std::string& subject) {
  auto subscription = session->subscribe(subject, pendingLimits);
  _connection->confirm(confirmTimeout);
  if (_connection->currentSession() != session->number()) throw SessionLost();
  return subscription;
}

void DurableReceiver::replaceSubscription(std::shared_ptr<Feed> subscription) {
  auto former = std::exchange(_subscription, std::move(subscription));
  const callbacks::MutexLock lock(_mutex);
  _waitedFor = stopped() ? nullptr : _subscription;
}

void DurableReceiver::interrupt() {
  const callbacks::MutexLock lock(_mutex);
  if (_waitedFor) _waitedFor->end();
  _waitedFor.reset();
}

void DurableReceiver::attach(bool first) {
  const auto session = _connection->session();
  replaceSubscription(nullptr);  // while it exists the server counts us as the active reader
  confirmAcknowledgements();
  const std::string claiming = _connection->makeInbox();
  const auto holder = subscribe(session, claiming);
  const auto claim = _store->claim(session, claiming);
  if (first) {
    begin(claim);
  } else {
    noticeNewStore(claim);
  }
  _created = claim.created;
  // What came to the first subject may have been sent before; the second one begins at the beginning.
  const std::string delivering = _connection->makeInbox();
  auto subscription = subscribe(session, delivering);
  _store->restart(session, delivering);
  replaceSubscription(std::move(subscription));
  _intake.readerReplaced();
  _life.attached(session->number(), Clock::now());
}

void DurableReceiver::begin(const DurableStore::Claim& claim) {
  _intake.startAfter(claim.sent);
  if (claim.first <= claim.finished + 1) return;
  const std::uint64_t expired = claim.first - claim.finished - 1;
  StreamCounters::add(_context->counters.lost, expired);
  reportExpired(expired);
}

void DurableReceiver::reportExpired(std::uint64_t messages) {
  _errors->report(std::to_string(messages) +
                  " stored messages were removed unread, for their age or for room");
}

/// Somebody has removed the store, and another one counts from 1 again.
void DurableReceiver::noticeNewStore(const DurableStore::Claim& claim) {
  if (claim.created == _created) return;
  _intake.storeReplaced();
  _errors->report("the stream's store was removed and made anew; what it held unread is gone");
}

void DurableReceiver::run() {
  while (!stopped()) {
    if (_connection->closed()) return reportClosed();
    if (keepAttached()) receive();
  }
  confirmAcknowledgements();
  replaceSubscription(nullptr);
}

/// Returns whether messages can come; if not, it has waited a little.
bool DurableReceiver::keepAttached() {
  const auto step = _life.next(_connection->currentSession(), Clock::now());
  passTime(step != ReaderLife::Step::receive);
  if (step == ReaderLife::Step::receive) return true;
  if (step == ReaderLife::Step::wait) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return false;
  }
  try {
    attach(false);
    return true;
  } catch (const std::exception& error) {
    if (_life.failed(Clock::now()))
      _errors->report(std::string("the stream cannot be read, trying again: ") + error.what());
    return false;
  }
}

void DurableReceiver::detach() {
  _life.detached(Clock::now());
}

void DurableReceiver::receive() {
  natsMsg* raw = nullptr;
  const TimePoint asked = Clock::now();
  const natsStatus status = _subscription->next(&raw, waitFor(slice));
  auto message = share(raw);
  beginTurn(_subscription->waiting(), asked);
  if (status == NATS_OK) {
    take(std::move(message));
  } else if (status == NATS_NO_RESPONDERS) {
    takeUnshown();
  } else if (status == NATS_TIMEOUT) {
    (void)reportRefused();
  } else if (!stopped()) {
    detach();  // dropped by the client, or the connection is about to be closed
  }
  _intake.tick(Clock::now(), reached());
  while (auto incoming = _intake.next()) deliver(std::move(*incoming));
  endTurn();
  if (status == NATS_OK) _life.heard(Clock::now());
}

void DurableReceiver::take(std::shared_ptr<natsMsg> message) {
  const char* const raw = natsMsg_GetReply(message.get());
  const std::string reply = raw == nullptr ? "" : raw;
  const auto numbers = _subjects.readDelivery(reply);
  if (!numbers) return takeSignal(message.get());
  takeStored(*numbers, reply, identify(std::move(message)));
}

/// The client keeps an empty message with the status 503 for itself, whoever has sent it. One that is stored
/// has to be acknowledged all the same, or it comes again and again.
void DurableReceiver::takeUnshown() {
  try {
    const auto number = _store->unshownAfter(_connection->session(), _intake.reached());
    if (!number) return refuse({});
    const auto numbers = _intake.unnumbered(*number);
    takeStored(numbers, _subjects.acknowledgement(numbers), {});
  } catch (const std::exception& error) {
    logError(std::string("a message without content could not be looked at: ") + error.what());
    detach();
  }
}

void DurableReceiver::takeStored(const DeliveryNumbers& numbers, const std::string& reply,
                                 Incoming incoming) {
  const auto arrival = _intake.arrived(numbers, reply);
  if (arrival.broken) return detach();
  if (arrival.expired > 0) reportExpired(arrival.expired);
  if (arrival.settled) acknowledge(reply);
  if (!arrival.fresh) return;
  incoming.receipt = std::make_unique<Settlement>(weak_from_this(), numbers.stored);
  const MessageIdentity identity = incoming.identity;
  _intake.put(identity, std::move(incoming), Clock::now());
}

void DurableReceiver::takeSignal(natsMsg* message) {
  const char* text = nullptr;
  if (natsMsg_GetDataLength(message) > 0 || natsMsgHeader_Get(message, "Status", &text) != NATS_OK ||
      std::strcmp(text, "100") != 0)
    return refuse({});
  // Everything before the request has been handled, so the server may send more.
  if (const char* reply = natsMsg_GetReply(message); reply != nullptr) return resume(reply);
  if (natsMsgHeader_Get(message, "Nats-Consumer-Stalled", &text) == NATS_OK) resume(text);
  if (natsMsgHeader_Get(message, "Nats-Last-Consumer", &text) == NATS_OK && !_intake.isComplete(text))
    detach();
}

void DurableReceiver::resume(const std::string& subject) {
  if (!_subjects.isFlowControl(subject)) return refuse({});
  (void)_connection->outbox().post({makeSignal(subject), 256, 0, nullptr, 0});
}

void DurableReceiver::settled(std::uint64_t number) {
  acknowledge(_intake.settle(number));
}

/// The server works acknowledgements off in their order and behind other requests. Whatever they are for
/// would come again if the reader was restarted or given to another one before.
void DurableReceiver::confirmAcknowledgements() {
  const std::string last = std::exchange(_lastAcknowledged, {});
  const auto session = _connection->session();
  if (last.empty() || !session->usable()) return;
  _connection->drain(confirmTime);
  natsMsg* raw = nullptr;
  (void)natsConnection_Request(&raw, session->handle(), last.c_str(), acknowledgement.data(),
                               static_cast<int>(acknowledgement.size()), confirmTime.count());
  const NatsMessage confirmed(raw);
}

void DurableReceiver::acknowledge(const std::string& subject) {
  if (subject.empty()) return;
  (void)_connection->outbox().post({makeSignal(subject, std::string(acknowledgement)), 256, 0, nullptr, 0});
  _lastAcknowledged = subject;
}

}  // namespace kestrel::streams
