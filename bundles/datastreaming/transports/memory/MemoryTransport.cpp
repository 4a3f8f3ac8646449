#include "transports/memory/MemoryTransport.hpp"

#include <utility>

#include "transports/LocalLink.hpp"
#include "transports/memory/MemoryProducer.hpp"
#include "transports/memory/MemoryReceiver.hpp"

namespace kestrel::streams {

std::shared_ptr<StreamLink> MemoryTransport::open(std::shared_ptr<StreamContext> context) {
  auto stream = _streams.open(context->id);
  return std::make_shared<LocalLink<MemoryStream, MemoryProducer, MemoryReceiver>>(
      std::move(context), std::move(stream), _limits);
}

}  // namespace kestrel::streams
