#include "transports/nats/live/LiveProducer.hpp"

#include <stdexcept>
#include <utility>

#include "transports/nats/wire/OutgoingMessage.hpp"

namespace kestrel::streams {

/// Follows messages, whose tags are the numbers of their confirmations: tells the book when they are sent,
/// and reports those that waited for the connection and were lost there.
class LiveProducer::Follower final : public Poster {
 public:
  Follower(std::shared_ptr<StreamContext> context, std::shared_ptr<ErrorOutlet> errors,
           std::shared_ptr<EchoBook> echoes)
      : _context(std::move(context)), _errors(std::move(errors)), _echoes(std::move(echoes)) {}

  void posting(std::uint64_t tag) noexcept override {
    if (_echoes) _echoes->posting(tag);
  }

  void postsFailed(const std::vector<std::uint64_t>& tags, const std::string& why) override {
    if (_echoes) _echoes->postsFailed(tags, why);
    StreamCounters::add(_context->counters.lost, tags.size());
    _errors->report("messages lost that waited to be sent: " + std::to_string(tags.size()) + "; " + why);
  }

 private:
  const std::shared_ptr<StreamContext> _context;
  const std::shared_ptr<ErrorOutlet> _errors;
  const std::shared_ptr<EchoBook> _echoes;  // none if nobody waits for confirmations
};

LiveProducer::LiveProducer(std::shared_ptr<StreamContext> context, std::shared_ptr<NatsConnection> connection,
                           std::string subject, const ProducerSettings& settings)
    : ProducerBase(std::move(context)),
      _connection(std::move(connection)),
      _subject(std::move(subject)),
      _acknowledge(settings.acknowledge) {}

LiveProducer::~LiveProducer() {
  close();
  if (_announcer) _announcer->retire();
}

void LiveProducer::abandonPayload() {
  _announcer->abandoned();
}

void LiveProducer::open() {
  if (_connection->closed())
    throw std::runtime_error("the connection is closed: " + _connection->lastFailure());
  if (_acknowledge) _echoes = _connection->echoes();
  _follower = std::make_shared<Follower>(context(), errors(), _echoes);
  _announcer = LiveAnnouncer::create(*_connection, _subject, producerId());
}

ProducerBase::Outcome LiveProducer::transmit(const Outgoing& message) {
  static const auto& noReply = *new const std::string;  // never destroyed
  Stamp stamp = message.stamp;
  stamp.age = _announcer->age().count();
  auto made = makeMessage({_subject, noReply, stamp, message.data, message.size, message.attributes, false},
                          _connection->maxPayload());
  if (auto* why = std::get_if<std::string>(&made)) return {std::move(*why), {}};
  auto& outgoing = std::get<OutgoingMessage>(made);
  EchoBook::Expectation expected{0, emptyAcknowledgement()};
  if (_echoes) {
    std::string id;
    writeMessageId(message.stamp, id);
    expected = _echoes->expect(std::move(id));
  }
  Outbox& outbox = _connection->outbox();
  const auto refusal =
      outbox.post({std::move(outgoing.message), outgoing.cost(), expected.number, _follower, 0});
  if (refusal) {
    if (_echoes) _echoes->postsFailed({expected.number}, *refusal);
    return {refusal, {}};
  }
  _announcer->sent(message.stamp.sequence);
  if (_echoes) EchoBook::ask(_echoes, outbox, expected.number);
  return {std::nullopt, std::move(expected.confirmed)};
}

}  // namespace kestrel::streams
