#include "transports/nats/NatsTransport.hpp"

#include <utility>

#include "transports/ThreadedConsumer.hpp"
#include "transports/nats/durable/DurableProducer.hpp"
#include "transports/nats/durable/DurableReceiver.hpp"
#include "transports/nats/live/LiveProducer.hpp"
#include "transports/nats/live/LiveReceiver.hpp"
#include "transports/nats/wire/SubjectNames.hpp"

namespace kestrel::streams {

namespace {

class LiveLink final : public StreamLink {
 public:
  LiveLink(std::shared_ptr<StreamContext> context, std::shared_ptr<NatsConnection> connection)
      : _context(std::move(context)), _connection(std::move(connection)), _names(_context->id) {}

  std::shared_ptr<datastreaming::Producer> makeProducer(const ProducerSettings& settings) override {
    return std::make_shared<LiveProducer>(_context, _connection, _names.live, settings);
  }

  std::shared_ptr<datastreaming::Consumer> makeConsumer() override {
    return std::make_shared<ThreadedConsumer>(
        std::make_shared<LiveReceiver>(_context, _connection, _names.live));
  }

 private:
  const std::shared_ptr<StreamContext> _context;
  const std::shared_ptr<NatsConnection> _connection;
  const SubjectNames _names;
};

class DurableLink final : public StreamLink {
 public:
  DurableLink(std::shared_ptr<StreamContext> context, std::shared_ptr<NatsConnection> connection)
      : _context(std::move(context)),
        _connection(std::move(connection)),
        _store(std::make_shared<const DurableStore>(_connection, SubjectNames(_context->id))) {
    _store->prepare();
  }

  std::shared_ptr<datastreaming::Producer> makeProducer(const ProducerSettings& settings) override {
    return std::make_shared<DurableProducer>(_context, _connection, _store, settings);
  }

  std::shared_ptr<datastreaming::Consumer> makeConsumer() override {
    return std::make_shared<ThreadedConsumer>(
        std::make_shared<DurableReceiver>(_context, _connection, _store));
  }

 private:
  const std::shared_ptr<StreamContext> _context;
  const std::shared_ptr<NatsConnection> _connection;
  const std::shared_ptr<const DurableStore> _store;
};

}  // namespace

std::shared_ptr<StreamLink> NatsTransport::open(std::shared_ptr<StreamContext> context) {
  auto shared = connection();
  context->counters.setConnection(shared->standing());
  if (_endpoint.delivery == NatsEndpoint::Delivery::durable) {
    return std::make_shared<DurableLink>(std::move(context), std::move(shared));
  }
  return std::make_shared<LiveLink>(std::move(context), std::move(shared));
}

std::shared_ptr<NatsConnection> NatsTransport::connection() {
  const callbacks::MutexLock lock(_mutex);
  if (!_connection || _connection->closed()) _connection = NatsConnection::connect(_endpoint);
  return _connection;
}

}  // namespace kestrel::streams
