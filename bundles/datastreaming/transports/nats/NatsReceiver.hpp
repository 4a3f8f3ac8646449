#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <variant>

#include "transports/nats/ArrivalClock.hpp"
#include "transports/nats/MessageHeaders.hpp"
#include "transports/nats/NatsConnection.hpp"
#include "transports/nats/Throttle.hpp"
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
  /// A message costs up to half a kilobyte beside its bytes, so that both limits stand for about as much.
  static constexpr PendingLimits pendingLimits{1 << 18, ByteBudget::defaultLimit};
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

  /// Some time has passed in which messages could come, or could not.
  void passTime(bool possible);
  /// Around the handling of what has just been taken from the subscription, if anything: what goes out
  /// meanwhile goes out together if more waits, and at the end payloads that have fallen silent are given up.
  void beginTurn(std::uint64_t waiting, TimePoint asked);
  void endTurn();
  /// Everything that came before that time has been taken.
  [[nodiscard]] TimePoint reached() const { return _clock.reached(); }

  /// Hands one message to the pipeline, or reports it if it comes from no producer of ours.
  void deliver(Incoming incoming);

  /// Drops what comes from no producer of ours, and counts it.
  void refuse(Incoming incoming);
  /// Reports what was refused, now and then; again later if it says so.
  [[nodiscard]] bool reportRefused();

  [[nodiscard]] bool stopped() const { return _stopped; }
  /// How long to wait for a message, at most that long.
  [[nodiscard]] std::chrono::milliseconds waitFor(std::chrono::milliseconds most) const;
  void reportClosed();

  const std::shared_ptr<StreamContext> _context;
  const std::shared_ptr<NatsConnection> _connection;
  const std::shared_ptr<ErrorOutlet> _errors;
  const std::shared_ptr<DeliveryPipeline> _pipeline;
  Throttle _refused;  // the delivery thread's own

 private:
  void deliverEvent(const ProducerEvent& event);

  // The delivery thread's own.
  ArrivalClock _clock{Clock::now()};
  TimePoint _seen = Clock::now();      // when passTime() was called last
  TimePoint _emptyAt = Clock::now();   // when no message waited last
  TimePoint _earliest = Clock::now();  // when what was taken last can have come
  bool _moreWaits = false;
  std::atomic<bool> _stopped{false};
};

}  // namespace kestrel::streams
