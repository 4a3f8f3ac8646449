#include "transports/nats/LiveProducer.hpp"

#include <stdexcept>
#include <utility>

#include "transports/nats/OutgoingMessage.hpp"
#include "transports/shared/Log.hpp"

namespace kestrel::streams {

namespace {

/// Without it the receiving side would wait for the rest of the payload until it counts as silent.
void announceEvent(NatsConnection& connection, const std::string& subject, ProducerEvent::Kind kind,
                   std::uint64_t producer) {
  try {
    (void)connection.outbox().post({makeEvent(subject, {kind, producer, 0}), 256, 0, nullptr, 0});
  } catch (const std::exception& error) {
    logError(std::string("a producer could not announce its end: ") + error.what());
  }
}

}  // namespace

/// Reports messages that waited for the connection and were lost there.
class LiveProducer::Failures final : public Poster {
 public:
  Failures(std::shared_ptr<StreamContext> context, std::shared_ptr<ErrorOutlet> errors)
      : _context(std::move(context)), _errors(std::move(errors)) {}

  void postsFailed(const std::vector<std::uint64_t>& tags, const std::string& why) override {
    StreamCounters::add(_context->counters.lost, tags.size());
    _errors->report("messages lost that waited to be sent: " + std::to_string(tags.size()) + "; " + why);
  }

 private:
  const std::shared_ptr<StreamContext> _context;
  const std::shared_ptr<ErrorOutlet> _errors;
};

LiveProducer::LiveProducer(std::shared_ptr<StreamContext> context, std::shared_ptr<NatsConnection> connection,
                           std::string subject, const ProducerSettings& settings)
    : ProducerBase(std::move(context)),
      _connection(std::move(connection)),
      _subject(std::move(subject)),
      _acknowledge(settings.acknowledge),
      _failures(std::make_shared<Failures>(this->context(), errors())) {}

LiveProducer::~LiveProducer() {
  close();
  if (_heard) announceEvent(*_connection, _subject, ProducerEvent::Kind::gone, producerId());
}

void LiveProducer::abandonPayload() {
  announceEvent(*_connection, _subject, ProducerEvent::Kind::abandoned, producerId());
}

void LiveProducer::open() {
  if (_connection->closed())
    throw std::runtime_error("the connection is closed: " + _connection->lastFailure());
  if (_acknowledge) _echoes = _connection->echoes();
}

ProducerBase::Outcome LiveProducer::transmit(const Outgoing& message) {
  static const std::string noReply;
  auto made =
      makeMessage({_subject, noReply, message.stamp, message.data, message.size, message.attributes, false},
                  _connection->maxPayload());
  if (auto* why = std::get_if<std::string>(&made)) return {std::move(*why), {}};
  auto& outgoing = std::get<OutgoingMessage>(made);
  auto refusal = _connection->outbox().post({std::move(outgoing.message), outgoing.cost(), 0, _failures, 0});
  if (refusal) return {std::move(refusal), {}};
  _heard = true;
  if (!_acknowledge) return {std::nullopt, emptyAcknowledgement()};
  std::string id;
  writeMessageId(message.stamp, id);
  return {std::nullopt, EchoBook::expect(_echoes, _connection->outbox(), std::move(id))};
}

}  // namespace kestrel::streams
