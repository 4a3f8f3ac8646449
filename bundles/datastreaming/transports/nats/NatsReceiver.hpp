#pragma once

#include <memory>
#include <string>

#include "transports/Receiver.hpp"
#include "transports/Throttle.hpp"
#include "transports/nats/ArrivalClock.hpp"
#include "transports/nats/connection/NatsConnection.hpp"
#include "transports/nats/wire/MessageHeaders.hpp"

namespace kestrel::streams {

/// What live and durable receivers share. open() subscribes: when it has returned, the server knows.
class NatsReceiver : public Receiver {
 public:
  NatsReceiver(std::shared_ptr<StreamContext> context, std::shared_ptr<NatsConnection> connection,
               const PayloadSequencer::Limits& limits)
      : Receiver(std::move(context), limits), _connection(std::move(connection)) {}

  void leave(bool insideRun) final {
    if (!insideRun) interrupt();  // else run() sees that it is stopped, and ends the subscription itself
  }

 protected:
  /// A message costs up to half a kilobyte beside its bytes, so that both limits stand for about as much.
  static constexpr PendingLimits pendingLimits{1 << 18, ByteBudget::defaultLimit};
  static constexpr std::chrono::milliseconds confirmTimeout{5000};

  /// Ends the subscription, so that run() does not wait for a message any more.
  virtual void interrupt() = 0;

  /// A message as it came, and what its headers say that it is.
  struct Incoming {
    std::shared_ptr<natsMsg> message;
    MessageIdentity identity;
    std::unique_ptr<Receipt> receipt;  ///< may be empty
  };
  [[nodiscard]] static Incoming identify(std::shared_ptr<natsMsg> message);

  /// Some time has passed; nobody was silent while the way was shut.
  void passTime(bool shut);
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

  /// How long to wait for a message, at most that long.
  [[nodiscard]] std::chrono::milliseconds waitFor(std::chrono::milliseconds most) const;
  void reportClosed();

  const std::shared_ptr<NatsConnection> _connection;
  Throttle _refused;  // the delivery thread's own

 private:
  void deliverEvent(const ProducerEvent& event);

  // The delivery thread's own.
  ArrivalClock _clock{Clock::now()};
  bool _moreWaits = false;
};

}  // namespace kestrel::streams
