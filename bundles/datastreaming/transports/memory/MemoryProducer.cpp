#include "transports/memory/MemoryProducer.hpp"

#include <kestrel/memory/Blocks.hpp>
#include <utility>

namespace kestrel::streams {

MemoryProducer::MemoryProducer(std::shared_ptr<StreamContext> context, std::shared_ptr<MemoryStream> stream,
                               const ProducerSettings& settings)
    : ProducerBase(std::move(context)), _stream(std::move(stream)), _acknowledge(settings.acknowledge) {}

MemoryProducer::~MemoryProducer() {
  close();
  // Consumers know nothing of a producer that sent nothing. Telling them all the same would let news pile up
  // that no bound counts.
  if (_heard) _stream->announce(MemoryQueue::Kind::vanished, producerId());
}

ProducerBase::Outcome MemoryProducer::transmit(const Outgoing& message) {
  auto [owner, cost] =
      _sharing.take({message.stamp, message.data, message.size, message.attributes}, _stream->queuesMade(),
                    [&](std::uint64_t room) { return !_stream->refusal(message.size, room); });
  if (!owner && message.size >= memory::leastKept) {  // before a large copy is made in vain
    if (auto why = _stream->refusal(message.size, cost)) return {std::move(why), {}};
  }
  const auto queued =
      owner ? MemoryMessage::sharing(message.stamp, message.data, message.size, message.attributes,
                                     std::move(owner))
            : MemoryMessage::copying(message.stamp, message.data, message.size, message.attributes);
  if (auto why = _stream->publish(queued, cost)) return {std::move(why), {}};
  _heard = true;
  return takenOver(message.stamp, _acknowledge);
}

void MemoryProducer::abandonPayload() {
  _stream->announce(MemoryQueue::Kind::abandoned, producerId());
}

}  // namespace kestrel::streams
