#include "transports/shared/DeliveryPipeline.hpp"

#include <exception>
#include <kestrel/datastreaming/Keys.hpp>
#include <utility>
#include <variant>

namespace kestrel::streams {

using datastreaming::AttributeMap;
using datastreaming::MessageAttributes;

DeliveryPipeline::DeliveryPipeline(std::shared_ptr<StreamContext> context,
                                   std::shared_ptr<ErrorOutlet> errors,
                                   const PayloadSequencer::Limits& limits)
    : _context(std::move(context)), _errors(std::move(errors)), _sequencer(limits) {}

void DeliveryPipeline::accept(Frame frame) {
  _sequencer.accept(std::move(frame));
  work();
}

void DeliveryPipeline::tick(TimePoint now) {
  _sequencer.tick(now);
  work();
}

void DeliveryPipeline::producerVanished(std::uint64_t producer) {
  _sequencer.producerVanished(producer);
  work();
}

void DeliveryPipeline::payloadAbandoned(std::uint64_t producer) {
  _sequencer.payloadAbandoned(producer);
  work();
}

void DeliveryPipeline::work() {
  while (auto action = _sequencer.next()) {
    favour(_sequencer.activeProducer());
    std::visit([this](auto& step) { perform(step); }, *action);
  }
}

/// Before the callback runs: pieces that arrive while it runs must find the reserve.
void DeliveryPipeline::favour(std::uint64_t producer) {
  if (_budget == nullptr || producer == _favoured) return;
  _favoured = producer;
  _budget->favour(producer);
}

void DeliveryPipeline::perform(PayloadSequencer::Deliver& action) {
  Frame& frame = action.frame;
  // Counted first: whoever has seen the message shall find it in the statistics.
  count(frame, 1);
  const Handing handing = hand(frame.data, frame.size, frame.stamp, frame.attributes);
  if (handing != Handing::done) count(frame, ~std::uint64_t{0});
  if (handing == Handing::closed) return;  // the receipt goes unsettled
  if (handing == Handing::notTaken) return leave(frame);
  if (handing == Handing::failed) {
    StreamCounters::add(_context->counters.lost);
    _sequencer.deliveryFailed(frame.stamp);
  }
  if (!frame.stamp.chunked) {
    settle(frame.receipt);
    return;
  }
  if (frame.receipt) _openReceipts.push_back(std::move(frame.receipt));
  if (frame.stamp.last) settlePayload();
}

/// Nobody has seen it, nor what came before of its payload: the receipts go unsettled.
void DeliveryPipeline::leave(const Frame& frame) {
  if (!frame.receipt) StreamCounters::add(_context->counters.lost);
  if (frame.stamp.chunked) _openReceipts.clear();
}

void DeliveryPipeline::perform(PayloadSequencer::EndPayload& action) {
  AttributeMap attributes;
  attributes.emplace(MessageAttributes::CompressionType, "chunk");
  attributes.emplace(MessageAttributes::UnCompressedSize, 0L);
  static constexpr std::uint8_t nothing = 0;
  if (hand(&nothing, 0, action.stamp, attributes) != Handing::closed) settlePayload();
}

void DeliveryPipeline::perform(PayloadSequencer::Loss& action) {
  StreamCounters::add(_context->counters.lost, action.messages);
  if (action.text.empty()) return;
  _errors->report(action.text + "; messages lost: " + std::to_string(action.messages));
}

DeliveryPipeline::Handing DeliveryPipeline::hand(const std::uint8_t* data, std::uint64_t size,
                                                 const Stamp& stamp, AttributeMap& attributes) {
  writeMessageId(stamp, _messageId);
  try {
    auto handling = datastreaming::Handling::done;
    if (!_gate.run([&] { handling = _callback(data, size, _messageId, attributes); })) return Handing::closed;
    if (handling == datastreaming::Handling::done) return Handing::done;
    return handling == datastreaming::Handling::failed ? Handing::failed : Handing::notTaken;
  } catch (const std::exception& error) {
    reportFailure(stamp, error.what());
  } catch (...) {
    reportFailure(stamp, "an exception that is no std::exception");
  }
  return Handing::failed;
}

void DeliveryPipeline::reportFailure(const Stamp& stamp, const char* what) {
  writeMessageId(stamp, _messageId);
  _errors->report("the data callback failed on message " + _messageId + ", which is lost: " + what);
}

/// Adds the frame that many times; the largest number, as -1, takes it back.
void DeliveryPipeline::count(const Frame& frame, std::uint64_t times) {
  auto& counters = _context->counters;
  StreamCounters::add(counters.messagesReceived, times);
  StreamCounters::add(counters.bytesReceived, times * frame.size);
  if (frame.stamp.last) StreamCounters::add(counters.payloadsReceived, times);
}

void DeliveryPipeline::settlePayload() {
  for (auto& receipt : _openReceipts) settle(receipt);
  _openReceipts.clear();
}

}  // namespace kestrel::streams
