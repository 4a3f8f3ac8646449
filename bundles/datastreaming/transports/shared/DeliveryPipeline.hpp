#pragma once

#include <kestrel/callbacks/CallbackGate.hpp>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "transports/shared/ErrorOutlet.hpp"
#include "transports/shared/PayloadSequencer.hpp"

namespace kestrel::streams {

/// The way of a frame from a transport to the data callback: order, statistics, reports, receipts.
///
/// The transport drives it, with one thread at a time: accept(), tick() and the events run the data callback
/// on the thread that calls them. Only setDataCallback() (before the first frame) and close() come from
/// elsewhere. The transport keeps it in a shared pointer that its delivery thread holds as well, for a
/// consumer may be destroyed inside its own callback.
class DeliveryPipeline {
 public:
  DeliveryPipeline(std::shared_ptr<StreamContext> context, std::shared_ptr<ErrorOutlet> errors,
                   const PayloadSequencer::Limits& limits = {});

  void setDataCallback(datastreaming::DataCallback callback) { _callback = std::move(callback); }
  /// Keeps the budget told of the producer whose payload is in progress; before the first frame.
  void setBudget(std::shared_ptr<ByteBudget> budget) { _budget = std::move(budget); }
  [[nodiscard]] bool hasDataCallback() const { return static_cast<bool>(_callback); }

  /// A frame has arrived, at the time that it carries.
  void accept(Frame frame);
  /// Ends payloads that have fallen silent; all that arrived before that time must have been accepted.
  void tick(TimePoint now);
  void producerVanished(std::uint64_t producer);
  void payloadAbandoned(std::uint64_t producer);

  /// When tick() may have something to do, if ever.
  [[nodiscard]] std::optional<TimePoint> deadline() const { return _sequencer.deadline(); }

  /// Closes the way to the data callback. After it has returned the callback does not run, unless it was
  /// called from inside it. Safe from any thread.
  void close() { _gate.close(); }
  [[nodiscard]] bool closed() const { return _gate.closed(); }

 private:
  void work();
  void favour(std::uint64_t producer);
  void perform(PayloadSequencer::Deliver& action);
  void perform(PayloadSequencer::EndPayload& action);
  void perform(PayloadSequencer::Loss& action);
  enum class Handing { done, failed, notTaken, closed };
  Handing hand(const std::uint8_t* data, std::uint64_t size, const Stamp& stamp,
               datastreaming::AttributeMap& attributes);
  void leave(const Frame& frame);
  void reportFailure(const Stamp& stamp, const char* what);
  void count(const Frame& frame, std::uint64_t times);
  void settlePayload();

  const std::shared_ptr<StreamContext> _context;
  const std::shared_ptr<ErrorOutlet> _errors;
  datastreaming::DataCallback _callback;
  callbacks::CallbackGate _gate;
  std::shared_ptr<ByteBudget> _budget;  // outlives the charges of the frames in _sequencer
  // The driving thread's own.
  std::uint64_t _favoured = 0;
  PayloadSequencer _sequencer;
  std::vector<std::unique_ptr<Receipt>> _openReceipts;  // of the pieces delivered of the payload in progress
  std::string _messageId;                               // kept to reuse its memory
};

}  // namespace kestrel::streams
