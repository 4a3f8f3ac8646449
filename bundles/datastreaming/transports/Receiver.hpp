#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include "delivery/DeliveryPipeline.hpp"

namespace kestrel::streams {

/// The receiving end of one consumer: takes messages of a stream and hands them to the pipeline. Shared by
/// the consumer and its delivery thread, which outlives the consumer if the callback destroys it.
class Receiver {
 public:
  Receiver(std::shared_ptr<StreamContext> context, const PayloadSequencer::Limits& limits)
      : _context(std::move(context)),
        _errors(std::make_shared<ErrorOutlet>(_context)),
        _pipeline(std::make_shared<DeliveryPipeline>(_context, _errors, limits)) {}
  virtual ~Receiver() = default;

  [[nodiscard]] DeliveryPipeline& pipeline() { return *_pipeline; }
  [[nodiscard]] ErrorOutlet& errors() { return *_errors; }

  /// Joins the stream: what is sent after it has returned is received. Throws std::runtime_error.
  virtual void open() = 0;
  /// Delivers until stop(); for the delivery thread, once.
  virtual void run() = 0;
  /// Leaves the stream, and wakes run() if it waits for a message. From any thread; `insideRun` says that a
  /// callback calls which run() has called. open() may follow where run() has not begun.
  virtual void leave(bool insideRun) = 0;

  /// Ends run() soon and closes the way to the callbacks. Threads as for leave().
  void stop(bool insideRun) {
    _stopped = true;
    leave(insideRun);
    _pipeline->close();
    _errors->close();
  }

 protected:
  [[nodiscard]] bool stopped() const { return _stopped; }

  const std::shared_ptr<StreamContext> _context;
  const std::shared_ptr<ErrorOutlet> _errors;
  const std::shared_ptr<DeliveryPipeline> _pipeline;

 private:
  std::atomic<bool> _stopped{false};
};

}  // namespace kestrel::streams
