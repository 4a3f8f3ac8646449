#pragma once

#include <memory>
#include <utility>

#include "sequencing/PayloadSequencer.hpp"
#include "transports/ThreadedConsumer.hpp"
#include "transports/Transport.hpp"

namespace kestrel::streams {

/// A link whose producers and receivers share one object of the stream, with no server between them.
template <class Stream, class StreamProducer, class StreamReceiver>
class LocalLink final : public StreamLink {
 public:
  LocalLink(std::shared_ptr<StreamContext> context, std::shared_ptr<Stream> stream,
            const PayloadSequencer::Limits& limits)
      : _context(std::move(context)), _stream(std::move(stream)), _limits(limits) {
    _stream->openedBy(_context);
    _context->counters.setConnection(nullptr);
  }

  std::shared_ptr<datastreaming::Producer> makeProducer(const ProducerSettings& settings) override {
    return std::make_shared<StreamProducer>(_context, _stream, settings);
  }
  std::shared_ptr<datastreaming::Consumer> makeConsumer() override {
    return std::make_shared<ThreadedConsumer>(std::make_shared<StreamReceiver>(_context, _stream, _limits));
  }

 private:
  const std::shared_ptr<StreamContext> _context;
  const std::shared_ptr<Stream> _stream;
  const PayloadSequencer::Limits _limits;
};

}  // namespace kestrel::streams
