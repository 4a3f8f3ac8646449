#include "transports/memory/MemoryProducer.hpp"

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
  const std::uint64_t cost = ByteBudget::costOf(message.size, message.attributes);
  if (message.size >= memory::leastKept) {  // before a large copy is made in vain
    if (auto why = _stream->refusal(message.size, cost)) return {std::move(why), {}};
  }
  const auto copy =
      std::make_shared<MemoryMessage>(message.stamp, message.data, message.size, message.attributes);
  if (auto why = _stream->publish(copy, cost)) return {std::move(why), {}};
  _heard = true;
  if (!_acknowledge) return {std::nullopt, emptyAcknowledgement()};
  std::string id;
  writeMessageId(message.stamp, id);
  return {std::nullopt, readyAcknowledgement(std::move(id))};
}

void MemoryProducer::abandonPayload() {
  _stream->announce(MemoryQueue::Kind::abandoned, producerId());
}

}  // namespace kestrel::streams
