#include "src/StreamsFactoryImpl.hpp"

#include <stdexcept>
#include <utility>

#include "src/StreamImpl.hpp"
#include "transports/Transports.hpp"

namespace kestrel::streams {

namespace {

StreamLink& linkOf(const std::shared_ptr<datastreaming::Stream>& stream, const char* operation) {
  const auto* own = dynamic_cast<const StreamImpl*>(stream.get());
  if (own == nullptr) {
    throw std::invalid_argument(std::string(operation) + ": a stream that getStream() gave was expected, " +
                                (stream ? "another one came" : "an empty pointer came"));
  }
  return own->link();
}

}  // namespace

StreamsFactoryImpl::StreamsFactoryImpl() : StreamsFactoryImpl(&makeTransport) {}

StreamsFactoryImpl::StreamsFactoryImpl(TransportMaker maker)
    : _makeTransport(std::move(maker)), _reporter(std::make_shared<ErrorReporter>()) {}

void StreamsFactoryImpl::configure(const datastreaming::ConfigurationMap& configuration) {
  const callbacks::MutexLock lock(_mutex);
  _settings.update(configuration);
  _transport.reset();  // streams that exist keep theirs
}

std::shared_ptr<datastreaming::Stream> StreamsFactoryImpl::getStream(const std::string& id,
                                                                     const datastreaming::AttributeMap&) {
  const callbacks::MutexLock lock(_mutex);
  auto context = _opened.find(id);
  if (!context) context = std::make_shared<StreamContext>(id, _reporter);
  auto stream = std::make_shared<StreamImpl>(context, transport()->open(context));
  _opened.add(context);
  return stream;
}

std::shared_ptr<datastreaming::Producer> StreamsFactoryImpl::createProducer(
    const std::shared_ptr<datastreaming::Stream>& stream,
    const datastreaming::ConfigurationMap& configuration) {
  StreamLink& link = linkOf(stream, "createProducer");
  ProducerSettings settings;
  {
    const callbacks::MutexLock lock(_mutex);
    settings = readProducerSettings(configuration, _settings);
  }
  return link.makeProducer(settings);
}

std::shared_ptr<datastreaming::Consumer> StreamsFactoryImpl::createConsumer(
    const std::shared_ptr<datastreaming::Stream>& stream) {
  return linkOf(stream, "createConsumer").makeConsumer();
}

std::vector<datastreaming::StreamStatistics> StreamsFactoryImpl::statistics() const {
  const callbacks::MutexLock lock(_mutex);
  return _opened.statistics();
}

std::shared_ptr<Transport> StreamsFactoryImpl::transport() {
  if (!_transport) _transport = _makeTransport(_settings);
  return _transport;
}

}  // namespace kestrel::streams
