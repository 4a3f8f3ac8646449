#include "transports/nats/NatsReceiver.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace kestrel::streams {

NatsReceiver::Incoming NatsReceiver::identify(std::shared_ptr<natsMsg> message) {
  Incoming incoming{.message = std::move(message), .identity = {}, .receipt = nullptr};
  natsMsg* const raw = incoming.message.get();
  const char* text = nullptr;
  if (natsMsgHeader_Get(raw, MessageHeaders::stamp.c_str(), &text) == NATS_OK) {
    if (const auto stamp = readStamp(text)) incoming.identity = *stamp;
  } else if (natsMsgHeader_Get(raw, MessageHeaders::event.c_str(), &text) == NATS_OK) {
    if (const auto event = readEvent(text)) incoming.identity = *event;
  }
  return incoming;
}

void NatsReceiver::passTime(bool shut) {
  _pipeline->excuse(_clock.deafness(Clock::now(), shut));
}

void NatsReceiver::beginTurn(std::uint64_t waiting, TimePoint asked) {
  _moreWaits = waiting > 0;
  if (_moreWaits) _connection->outbox().expectMore();
  _clock.advance(asked, Clock::now(), waiting);
}

void NatsReceiver::endTurn() {
  _pipeline->tick(_clock.reached());
  if (!_moreWaits) _connection->outbox().flush();
}

void NatsReceiver::deliver(Incoming incoming) {
  if (const auto* event = std::get_if<ProducerEvent>(&incoming.identity)) {
    deliverEvent(*event);
    return settle(incoming.receipt);
  }
  const auto* stamp = std::get_if<Stamp>(&incoming.identity);
  natsMsg* const message = incoming.message.get();
  auto attributes = stamp != nullptr ? readAttributes(message) : std::nullopt;
  if (!attributes) return refuse(std::move(incoming));
  Frame frame;
  frame.stamp = *stamp;
  frame.arrival = Clock::now();  // or before, but it cannot have been silent since then
  frame.earliest = _clock.earliest();
  frame.data = reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message));
  frame.size = static_cast<std::uint64_t>(natsMsg_GetDataLength(message));
  frame.attributes = std::move(*attributes);
  frame.owner = std::move(incoming.message);
  frame.receipt = std::move(incoming.receipt);
  _pipeline->accept(std::move(frame));
}

void NatsReceiver::deliverEvent(const ProducerEvent& event) {
  if (event.kind == ProducerEvent::Kind::abandoned) return _pipeline->payloadAbandoned(event.producer);
  std::optional<TimePoint> began;
  if (event.age) began = _clock.earliest() - *event.age;
  _pipeline->producerReached(event.producer, event.after, began, Clock::now());
  if (event.kind == ProducerEvent::Kind::gone) _pipeline->producerVanished(event.producer);
}

void NatsReceiver::refuse(Incoming incoming) {
  StreamCounters::add(_context->counters.lost);
  _refused.add();
  (void)reportRefused();
  settle(incoming.receipt);
}

bool NatsReceiver::reportRefused() {
  if (const auto count = _refused.due(Clock::now()); count > 0) {
    _errors->report(std::to_string(count) +
                    " messages without a valid stamp and attributes were dropped; only programs of this "
                    "library may publish on its subjects");
  }
  return _refused.pending();
}

std::chrono::milliseconds NatsReceiver::waitFor(std::chrono::milliseconds most) const {
  const auto deadline = _pipeline->deadline();
  if (!deadline) return most;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
  return std::clamp(left, std::chrono::milliseconds(1), most);
}

void NatsReceiver::reportClosed() {
  if (!stopped()) _errors->report("no more messages will come: " + _connection->lastFailure());
}

}  // namespace kestrel::streams
