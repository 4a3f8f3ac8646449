#include "transports/memory/MemoryTransport.hpp"

#include <utility>

#include "transports/ThreadedConsumer.hpp"
#include "transports/memory/MemoryProducer.hpp"
#include "transports/memory/MemoryReceiver.hpp"

namespace kestrel::streams {

namespace {

class MemoryLink final : public StreamLink {
 public:
  MemoryLink(std::shared_ptr<StreamContext> context, std::shared_ptr<MemoryStream> stream,
             const PayloadSequencer::Limits& limits)
      : _context(std::move(context)), _stream(std::move(stream)), _limits(limits) {}

  std::shared_ptr<datastreaming::Producer> makeProducer(const ProducerSettings& settings) override {
    return std::make_shared<MemoryProducer>(_context, _stream, settings);
  }
  std::shared_ptr<datastreaming::Consumer> makeConsumer() override {
    return std::make_shared<ThreadedConsumer>(std::make_shared<MemoryReceiver>(_context, _stream, _limits));
  }

 private:
  const std::shared_ptr<StreamContext> _context;
  const std::shared_ptr<MemoryStream> _stream;
  const PayloadSequencer::Limits _limits;
};

}  // namespace

std::shared_ptr<StreamLink> MemoryTransport::open(std::shared_ptr<StreamContext> context) {
  auto stream = _streams.open(context->id);
  stream->openedBy(context);
  context->counters.setConnection(nullptr);
  return std::make_shared<MemoryLink>(std::move(context), std::move(stream), _limits);
}

}  // namespace kestrel::streams
