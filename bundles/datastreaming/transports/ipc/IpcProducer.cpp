#include "transports/ipc/IpcProducer.hpp"

namespace kestrel::streams {

IpcProducer::~IpcProducer() {
  close();
  // Consumers know nothing of a producer that sent nothing.
  if (_last > 0) _stream->announce({ProducerEvent::Kind::gone, producerId(), _last});
}

ProducerBase::Outcome IpcProducer::transmit(const Outgoing& message) {
  const auto taken =
      _sharing.take({message.stamp, message.data, message.size, message.attributes}, _stream->linesMade(),
                    [&](std::uint64_t room) { return !_stream->refusal(message.size, room); });
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
