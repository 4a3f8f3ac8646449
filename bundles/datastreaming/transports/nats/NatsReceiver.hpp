#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <variant>

#include "transports/nats/ArrivalClock.hpp"
#include "transports/nats/MessageHeaders.hpp"
#include "transports/nats/NatsConnection.hpp"
#include "transports/shared/DeliveryPipeline.hpp"

namespace kestrel::streams {

/// The receiving end of one consumer: takes messages of a subscription and hands them to the pipeline. Shared
/// by the consumer and its delivery thread, which outlives the consumer if the callback destroys it.
class NatsReceiver {
 public:
  NatsReceiver(std::shared_ptr<StreamContext> context, std::shared_ptr<NatsConnection> connection,
               const PayloadSequencer::Limits& limits);
  virtual ~NatsReceiver() = default;

  [[nodiscard]] DeliveryPipeline& pipeline() { return *_pipeline; }
  [[nodiscard]] ErrorOutlet& errors() { return *_errors; }

  /// Subscribes. When it has returned, the server knows; throws std::runtime_error.
  virtual void open() = 0;
  /// Delivers until stop(); for the delivery thread.
  virtual void run() = 0;
  /// Ends run() soon and closes the way to the callbacks. From any thread, also from a callback that run()
  /// has called.
  void stop(bool insideRun);

 protected:
  static constexpr PendingLimits pendingLimits{1 << 20, ByteBudget::defaultLimit};
  static constexpr std::chrono::milliseconds confirmTimeout{5000};

  /// Wakes run() if it waits for a message, for it to find that it is stopped.
  virtual void interrupt() = 0;

  /// A message as it came, and what its headers say that it is.
  struct Incoming {
    std::shared_ptr<natsMsg> message;
    std::variant<std::monostate, Stamp, ProducerEvent> identity;  ///< neither: of no producer of ours
    std::unique_ptr<Receipt> receipt;                             ///< may be empty
  };
  [[nodiscard]] static Incoming identify(std::shared_ptr<natsMsg> message);

  /// Around the handling of what has just been taken from the subscription, if anything: the time that
  /// delivery has reached, and what goes out meanwhile goes out together if more waits: so many messages.
  [[nodiscard]] TimePoint beginTurn(std::uint64_t waiting);
  void endTurn();

  /// Hands one message to the pipeline, or reports it if it comes from no producer of ours.
  void deliver(Incoming incoming, TimePoint arrival);

  /// Drops what comes from no producer of ours, and reports it.
  void refuse(Incoming incoming);

  [[nodiscard]] bool stopped() const { return _stopped; }
  /// How long to wait for a message, at most that long.
  [[nodiscard]] std::chrono::milliseconds waitFor(std::chrono::milliseconds most) const;
  void reportClosed();

  const std::shared_ptr<StreamContext> _context;
  const std::shared_ptr<NatsConnection> _connection;
  const std::shared_ptr<ErrorOutlet> _errors;
  const std::shared_ptr<DeliveryPipeline> _pipeline;
  // The delivery thread's own.
  ArrivalClock _clock{Clock::now()};

 private:
  void deliverEvent(const ProducerEvent& event);

  bool _moreWaits = false;  // the delivery thread's own
  std::atomic<bool> _stopped{false};
};

}  // namespace kestrel::streams
