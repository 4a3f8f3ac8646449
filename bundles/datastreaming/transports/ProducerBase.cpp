#include "transports/ProducerBase.hpp"

#include <exception>
#include <kestrel/memory/Buffer.hpp>
#include <stdexcept>
#include <utility>

namespace kestrel::streams {

namespace {

/// Of several pieces. They are cut from one encoding, which as a rule is a block of memory that knows its
/// size.
bool beginsPayload(const Stamp& stamp) {
  return stamp.chunked && !stamp.last && stamp.chunkIndex == 0;
}

}  // namespace

ProducerBase::ProducerBase(std::shared_ptr<StreamContext> context)
    : _context(std::move(context)),
      _errors(std::make_shared<ErrorOutlet>(_context)),
      _producerId(makeProducerId()),
      _stamper(_producerId) {}

void ProducerBase::setErrorCallback(datastreaming::ErrorCallback callback) {
  _errors->setCallback(std::move(callback));
}

std::shared_future<void> ProducerBase::start() {
  const callbacks::MutexLock lock(_mutex);
  return _start.run([this] { open(); });
}

std::shared_future<std::string> ProducerBase::send(const std::uint8_t* data, std::uint64_t size,
                                                   const datastreaming::AttributeMap& attributes) {
  const ChunkMark mark = readChunkMark(attributes);
  std::shared_future<std::string> acknowledgement;
  std::optional<Refusal> refusal;
  {
    const callbacks::MutexLock lock(_mutex);
    Stamp stamp = _stamper.next(mark);
    if (beginsPayload(stamp)) stamp.whole = memory::ownerOf(data, size).size;
    refusal = tryTransmit(Outgoing{stamp, data, size, attributes}, mark, acknowledgement);
    if (!refusal) {
      _stamper.accepted(stamp);
    } else if (_stamper.refused(stamp, !mark.fault.empty())) {
      abandonPayload();
    }
  }
  if (refusal) return refuse(*refusal);
  StreamCounters::add(_context->counters.messagesSent);
  StreamCounters::add(_context->counters.bytesSent, size);
  return acknowledgement;
}

std::optional<ProducerBase::Refusal> ProducerBase::tryTransmit(
    const Outgoing& message, const ChunkMark& mark, std::shared_future<std::string>& acknowledgement) {
  if (_stamper.broken(message.stamp)) {
    return Refusal{"refused, for an earlier piece of the payload was refused", false};
  }
  if (!mark.fault.empty()) return Refusal{"message refused: " + mark.fault};
  if (!_start.done()) return Refusal{"message refused: the producer has not been started"};
  try {
    Outcome outcome = transmit(message);
    if (outcome.refusal) return Refusal{std::move(*outcome.refusal)};
    acknowledgement = std::move(outcome.acknowledgement);
    return std::nullopt;
  } catch (const std::exception& error) {
    return Refusal{"message of " + std::to_string(message.size) + " bytes refused: " + error.what()};
  }
}

std::shared_future<std::string> ProducerBase::refuse(const Refusal& refusal) {
  StreamCounters::add(_context->counters.refused);
  auto failed = failedAcknowledgement(_context->label() + ": " + refusal.text);
  // The error callback may drop this producer before the report returns, so nothing of it is used after that.
  const auto errors = _errors;
  if (refusal.report) errors->report(refusal.text);
  return failed;
}

ProducerBase::Outcome ProducerBase::takenOver(const Stamp& stamp, bool acknowledge) {
  if (!acknowledge) return {std::nullopt, emptyAcknowledgement()};
  std::string id;
  writeMessageId(stamp, id);
  return {std::nullopt, readyAcknowledgement(std::move(id))};
}

const std::shared_future<std::string>& ProducerBase::emptyAcknowledgement() {
  // Never destroyed: messages are sent until the very end of the process.
  static const auto* const ready = new std::shared_future<std::string>(readyAcknowledgement({}));
  return *ready;
}

std::shared_future<std::string> ProducerBase::readyAcknowledgement(std::string messageId) {
  std::promise<std::string> promise;
  promise.set_value(std::move(messageId));
  return promise.get_future().share();
}

std::shared_future<std::string> ProducerBase::failedAcknowledgement(const std::string& text) {
  std::promise<std::string> promise;
  promise.set_exception(std::make_exception_ptr(std::runtime_error(text)));
  return promise.get_future().share();
}

}  // namespace kestrel::streams
