#include "transports/nats/durable/DurableProducer.hpp"

#include <stdexcept>
#include <utility>

#include "delivery/Log.hpp"
#include "transports/nats/wire/OutgoingMessage.hpp"

namespace kestrel::streams {

DurableProducer::DurableProducer(std::shared_ptr<StreamContext> context,
                                 std::shared_ptr<NatsConnection> connection,
                                 std::shared_ptr<const DurableStore> store, const ProducerSettings& settings)
    : ProducerBase(std::move(context)),
      _connection(std::move(connection)),
      _store(std::move(store)),
      _acknowledge(settings.acknowledge) {}

DurableProducer::~DurableProducer() {
  close();
  if (!_publisher) return;
  if (_lastSequence > 0) announce(ProducerEvent::Kind::gone);
  _publisher->retire();
}

void DurableProducer::open() {
  if (_connection->closed()) {
    throw std::runtime_error("the connection is closed: " + _connection->lastFailure());
  }
  _publisher = DurablePublisher::create(*_connection, context(), errors());
}

ProducerBase::Outcome DurableProducer::transmit(const Outgoing& message) {
  const std::uint64_t number = _number + 1;
  auto made = makeMessage({_store->names().durable, _publisher->replySubject(number), message.stamp,
                           message.data, message.size, message.attributes, true},
                          _connection->maxPayload());
  if (auto* why = std::get_if<std::string>(&made)) return {std::move(*why), {}};
  auto& outgoing = std::get<OutgoingMessage>(made);
  PublishLedger::Entry entry{number,           std::move(outgoing.message), outgoing.cost(), Clock::now(), {},
                             outgoing.wireSize};
  auto acknowledgement = emptyAcknowledgement();
  if (_acknowledge) acknowledgement = entry.stored.emplace().get_future().share();
  if (auto refusal = _publisher->submit(std::move(entry))) return {std::move(refusal), {}};
  _number = number;
  _lastSequence = message.stamp.sequence;
  return {std::nullopt, std::move(acknowledgement)};
}

void DurableProducer::abandonPayload() {
  announce(ProducerEvent::Kind::abandoned);
}

void DurableProducer::announce(ProducerEvent::Kind kind) {
  constexpr std::uint64_t cost = 256;
  try {
    const std::uint64_t number = ++_number;
    auto message = makeEvent(_store->names().durable, {kind, producerId(), _lastSequence},
                             _publisher->replySubject(number));
    (void)_publisher->submit({number, std::move(message), cost, Clock::now(), {}});
  } catch (const std::exception& error) {
    logError(std::string("a producer could not announce its end: ") + error.what());
  }
}

}  // namespace kestrel::streams
