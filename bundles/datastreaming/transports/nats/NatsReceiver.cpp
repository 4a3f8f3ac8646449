#include "transports/nats/NatsReceiver.hpp"

#include <algorithm>
#include <stdexcept>

namespace kestrel::streams {

namespace {

constexpr std::chrono::milliseconds confirmTimeout{5000};
constexpr int pendingMessages = 1 << 20;

std::uint64_t waitingIn(natsSubscription* subscription) {
  int messages = 0;
  if (natsSubscription_GetPending(subscription, &messages, nullptr) != NATS_OK) return 0;
  return static_cast<std::uint64_t>(std::max(messages, 0));
}

}  // namespace

NatsReceiver::NatsReceiver(std::shared_ptr<StreamContext> context, std::shared_ptr<NatsConnection> connection,
                           const PayloadSequencer::Limits& limits)
    : _context(std::move(context)),
      _connection(std::move(connection)),
      _errors(std::make_shared<ErrorOutlet>(_context)),
      _pipeline(std::make_shared<DeliveryPipeline>(_context, _errors, limits)) {}

void NatsReceiver::stop(bool insideRun) {
  _stopped = true;
  if (!insideRun) use(nullptr);
  _pipeline->close();
  _errors->close();
}

std::shared_ptr<natsSubscription> NatsReceiver::subscribe(const std::string& subject) {
  natsSubscription* raw = nullptr;
  require(natsConnection_SubscribeSync(&raw, _connection->handle(), subject.c_str()), "subscribing");
  std::shared_ptr<natsSubscription> subscription(
      raw, [connection = _connection](natsSubscription* ended) { connection->release(ended); });
  require(natsSubscription_SetPendingLimits(raw, pendingMessages, ByteBudget::defaultLimit),
          "setting the limits of a subscription");
  _connection->confirm(confirmTimeout);
  return subscription;
}

void NatsReceiver::use(std::shared_ptr<natsSubscription> subscription) {
  const std::lock_guard lock(_mutex);
  // Whoever waits for a message of the old one is woken by this; the thread keeps its own reference.
  if (_subscription) natsSubscription_Unsubscribe(_subscription.get());
  _subscription = _stopped ? nullptr : std::move(subscription);
}

NatsReceiver::Incoming NatsReceiver::identify(std::shared_ptr<natsMsg> message) {
  Incoming incoming{.message = std::move(message), .identity = {}, .receipt = nullptr};
  natsMsg* const raw = incoming.message.get();
  const char* text = nullptr;
  if (natsMsgHeader_Get(raw, MessageHeaders::stamp.c_str(), &text) == NATS_OK) {
    if (const auto sealed = readSealedStamp(text)) {
      incoming.identity = sealed->stamp;
      const auto size = static_cast<std::size_t>(natsMsg_GetDataLength(raw));
      incoming.torn = checksum(natsMsg_GetData(raw), size) != sealed->checksum;
    }
  } else if (natsMsgHeader_Get(raw, MessageHeaders::event.c_str(), &text) == NATS_OK) {
    if (const auto event = readEvent(text)) incoming.identity = *event;
  }
  return incoming;
}

TimePoint NatsReceiver::beginTurn(natsSubscription* subscription) {
  const auto waiting = waitingIn(subscription);
  _moreWaits = waiting > 0;
  if (_moreWaits) _connection->outbox().expectMore();
  return _clock.advance(Clock::now(), waiting);
}

void NatsReceiver::endTurn() {
  if (!_moreWaits) _connection->outbox().flush();
}

void NatsReceiver::deliver(Incoming incoming, TimePoint arrival) {
  if (const auto* event = std::get_if<ProducerEvent>(&incoming.identity)) {
    deliverEvent(*event);
    return settle(incoming.receipt);
  }
  if (incoming.torn) {  // the next message of its producer shows that it is missing
    return _errors->report("a message was cut off when the connection was lost, and is dropped");
  }
  const auto* stamp = std::get_if<Stamp>(&incoming.identity);
  natsMsg* const message = incoming.message.get();
  auto attributes = stamp != nullptr ? readAttributes(message) : std::nullopt;
  if (!attributes) return refuse(std::move(incoming));
  Frame frame;
  frame.stamp = *stamp;
  frame.arrival = arrival;
  frame.data = reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message));
  frame.size = static_cast<std::uint64_t>(natsMsg_GetDataLength(message));
  frame.attributes = std::move(*attributes);
  frame.owner = std::move(incoming.message);
  frame.receipt = std::move(incoming.receipt);
  _pipeline->accept(std::move(frame));
}

void NatsReceiver::deliverEvent(const ProducerEvent& event) {
  if (event.kind == ProducerEvent::Kind::gone) {
    _pipeline->producerVanished(event.producer);
  } else {
    _pipeline->payloadAbandoned(event.producer);
  }
}

void NatsReceiver::refuse(Incoming incoming) {
  StreamCounters::add(_context->counters.lost);
  _errors->report(
      "a message without a valid stamp and attributes was dropped; only programs of this library may publish "
      "on its subjects");
  settle(incoming.receipt);
}

std::int64_t NatsReceiver::waitFor(std::chrono::milliseconds most) const {
  const auto deadline = _pipeline->deadline();
  if (!deadline) return most.count();
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(_clock.real(*deadline) - Clock::now());
  return std::clamp<std::int64_t>(left.count(), 1, most.count());
}

void NatsReceiver::reportDropped(natsSubscription* subscription) {
  std::int64_t dropped = 0;
  if (natsSubscription_GetDropped(subscription, &dropped) != NATS_OK || dropped <= _dropped) return;
  _errors->report("the data callback is too slow: " + std::to_string(dropped - _dropped) +
                  " messages were dropped, for more than " + std::to_string(ByteBudget::defaultLimit) +
                  " bytes waited");
  _dropped = dropped;
}

void NatsReceiver::reportClosed() {
  if (!_stopped) _errors->report("no more messages will come: " + _connection->lastFailure());
}

}  // namespace kestrel::streams
