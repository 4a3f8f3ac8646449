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
  auto [owner, cost] = takeOver(message);
  if (!owner && message.size >= memory::leastKept) {  // before a large copy is made in vain
    if (auto why = _stream->refusal(message.size, cost)) return {std::move(why), {}};
  }
  const auto queued =
      owner ? MemoryMessage::sharing(message.stamp, message.data, message.size, message.attributes,
                                     std::move(owner))
            : MemoryMessage::copying(message.stamp, message.data, message.size, message.attributes);
  if (auto why = _stream->publish(queued, cost)) return {std::move(why), {}};
  _heard = true;
  if (!_acknowledge) return {std::nullopt, emptyAcknowledgement()};
  std::string id;
  writeMessageId(message.stamp, id);
  return {std::nullopt, readyAcknowledgement(std::move(id))};
}

/// Whoever shares one piece of a payload keeps all of it, so the first one is charged for all, and the others
/// for nothing, unless a queue was made meanwhile. Where there is no room for so much, pieces are copied, and
/// keep themselves alone.
MemoryProducer::Taken MemoryProducer::takeOver(const Outgoing& message) {
  const Stamp& stamp = message.stamp;
  const std::uint64_t copyCost = ByteBudget::costOf(message.size, message.attributes);
  memory::Frozen frozen;
  if (stamp.chunked || message.size >= memory::leastKept)
    frozen = memory::ownerOf(message.data, message.size);
  const bool isFirst = stamp.chunkIndex == 0;
  const std::uint64_t queues = _stream->queuesMade();
  const bool goesOn = !isFirst && frozen.owner && _shared.lock() == frozen.owner && queues == _sharedBy;
  const std::uint64_t cost = ByteBudget::costOf(goesOn ? 0 : frozen.size, message.attributes);
  const bool shares = goesOn || (isFirst && frozen.owner && !_stream->refusal(message.size, cost));
  _shared = shares ? frozen.owner : nullptr;
  _sharedBy = queues;
  if (!shares) return {nullptr, copyCost};
  return {std::move(frozen.owner), cost};
}

void MemoryProducer::abandonPayload() {
  _stream->announce(MemoryQueue::Kind::abandoned, producerId());
}

}  // namespace kestrel::streams
