#include "transports/ipc/IpcProducer.hpp"

#include <algorithm>

namespace kestrel::streams {

IpcProducer::~IpcProducer() {
  close();
  // Consumers know nothing of a producer that sent nothing.
  if (_last > 0) _stream->announce({ProducerEvent::Kind::gone, producerId(), _last});
}

ProducerBase::Outcome IpcProducer::transmit(const Outgoing& message) {
  auto taken = _sharing.take(
      {message.stamp, message.data, message.size, message.attributes}, _stream->linesMade(),
      [&](std::uint64_t room) { return !_stream->refusal(message.size, room); },
      [](const memory::Frozen& frozen) { return frozen.descriptor >= 0; });
  const bool takesBlock = taken.owner == nullptr || message.stamp.chunkIndex == 0;
  if (message.size >= memory::leastMappable && takesBlock) {
    taken.cost = std::max(taken.cost, _stream->leastCostOfBlock());
  }
  if (message.size >= memory::leastMappable) {  // before a large copy is made in vain
    if (auto why = _stream->refusal(message.size, taken.cost)) return {std::move(why), {}};
  }
  const auto record = OutgoingRecord::message(message.stamp, message.data, message.size, message.attributes,
                                              taken.owner != nullptr, taken.cost);
  if (auto why = _stream->publish(record, message.stamp, message.size)) return {std::move(why), {}};
  _last = message.stamp.sequence;
  return takenOver(message.stamp, _acknowledge);
}

void IpcProducer::abandonPayload() {
  _stream->announce({ProducerEvent::Kind::abandoned, producerId(), _last});
}

}  // namespace kestrel::streams
