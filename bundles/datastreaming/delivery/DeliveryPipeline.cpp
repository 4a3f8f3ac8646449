#include "delivery/DeliveryPipeline.hpp"

#include <exception>
#include <utility>
#include <variant>

namespace kestrel::streams {

using datastreaming::Handling;

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

void DeliveryPipeline::producerReached(std::uint64_t producer, std::uint64_t last,
                                       std::optional<TimePoint> began, TimePoint now) {
  _sequencer.producerReached(producer, last, began, now);
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

void DeliveryPipeline::abandon(std::uint64_t waiting) {
  waiting += _sequencer.messagesHeld();
  StreamCounters::add(_context->counters.lost, waiting);
  const std::uint64_t lost = waiting + std::exchange(_leftBehind, 0);
  if (lost == 0) return;
  _errors->report("the consumer has gone without taking all that came for it; messages lost: " +
                  std::to_string(lost));
}

void DeliveryPipeline::work() {
  while (auto action = _sequencer.next()) {
    std::visit([this](auto& step) { perform(step); }, *action);
  }
}

void DeliveryPipeline::perform(PayloadSequencer::Deliver& action) {
  Frame& frame = action.frame;
  // Counted first: whoever has seen the message shall find it in the statistics.
  countReceived(frame);
  const auto handling = hand(frame);
  if (handling == Handling::done || handling == Handling::failed) {
    if (handling == Handling::failed) countUndelivered(frame, true);
    settle(frame.receipt);
  } else {
    // The receipt goes unsettled: where there is one, the message stays stored.
    countUndelivered(frame, !frame.receipt);
    if (!frame.receipt) _leftBehind += frame.messages;
  }
}

void DeliveryPipeline::perform(const PayloadSequencer::Loss& action) {
  StreamCounters::add(_context->counters.lost, action.messages);
  if (action.text.empty()) return;
  _errors->report(action.text + "; messages lost: " + std::to_string(action.messages));
}

void DeliveryPipeline::perform(const PayloadSequencer::Copy&) {
  StreamCounters::add(_context->counters.copies);
}

std::optional<Handling> DeliveryPipeline::hand(Frame& frame) {
  writeMessageId(frame.stamp, _messageId);
  try {
    auto handling = Handling::done;
    const bool ran =
        _gate.run([&] { handling = _callback(frame.data, frame.size, _messageId, frame.attributes); });
    return ran ? std::optional(handling) : std::nullopt;
  } catch (const std::exception& error) {
    reportFailure(frame, error.what());
  } catch (...) {
    reportFailure(frame, "an exception that is no std::exception");
  }
  return Handling::failed;
}

void DeliveryPipeline::reportFailure(const Frame& frame, const char* what) {
  writeMessageId(frame.stamp, _messageId);
  _errors->report("the data callback failed on message " + _messageId + ", which is lost: " + what);
}

void DeliveryPipeline::countReceived(const Frame& frame) {
  auto& counters = _context->counters;
  StreamCounters::add(counters.messagesReceived, frame.messages);
  StreamCounters::add(counters.bytesReceived, frame.size);
  StreamCounters::add(counters.payloadsReceived);
}

void DeliveryPipeline::countUndelivered(const Frame& frame, bool lost) {
  auto& counters = _context->counters;
  counters.messagesReceived -= frame.messages;
  counters.bytesReceived -= frame.size;
  --counters.payloadsReceived;
  if (lost) StreamCounters::add(counters.lost, frame.messages);
}

}  // namespace kestrel::streams
