#pragma once

#include <kestrel/callbacks/CallbackGate.hpp>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "delivery/ErrorOutlet.hpp"
#include "sequencing/PayloadSequencer.hpp"

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
  [[nodiscard]] bool hasDataCallback() const { return static_cast<bool>(_callback); }

  /// From that time on every message of the stream is for this consumer.
  void begin(TimePoint now) { _sequencer.begin(now); }
  /// A frame has arrived.
  void accept(Frame frame);
  /// Gives up payloads that have fallen silent; all that arrived before that time must have been accepted.
  void tick(TimePoint now);
  /// See PayloadSequencer.
  void excuse(Clock::duration time) { _sequencer.excuse(time); }
  void producerReached(std::uint64_t producer, std::uint64_t last, std::optional<TimePoint> began,
                       TimePoint now);
  void producerVanished(std::uint64_t producer);
  void payloadAbandoned(std::uint64_t producer);
  /// The consumer goes, and so many messages still wait for it: they are counted as lost with those that are
  /// held here, and reported. The last call.
  void abandon(std::uint64_t waiting);

  /// When tick() may have something to do, if ever.
  [[nodiscard]] std::optional<TimePoint> deadline() const { return _sequencer.deadline(); }

  /// Closes the way to the data callback. After it has returned the callback does not run, unless it was
  /// called from inside it. Safe from any thread.
  void close() { _gate.close(); }
  [[nodiscard]] bool closed() const { return _gate.closed(); }

 private:
  void work();
  void perform(PayloadSequencer::Deliver& action);
  void perform(const PayloadSequencer::Loss& action);
  void perform(const PayloadSequencer::Copy& action);
  /// Nothing if the way to the callback is closed.
  std::optional<datastreaming::Handling> hand(Frame& frame);
  void reportFailure(const Frame& frame, const char* what);
  void countReceived(const Frame& frame);
  void countUndelivered(const Frame& frame, bool lost);

  const std::shared_ptr<StreamContext> _context;
  const std::shared_ptr<ErrorOutlet> _errors;
  datastreaming::DataCallback _callback;
  callbacks::CallbackGate _gate;
  // The driving thread's own.
  PayloadSequencer _sequencer;
  std::uint64_t _leftBehind = 0;  // messages that nobody took, and that are stored nowhere
  std::string _messageId;         // kept to reuse its memory
};

}  // namespace kestrel::streams
