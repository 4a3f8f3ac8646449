#include "transports/nats/LiveReceiver.hpp"

#include <utility>

namespace kestrel::streams {

namespace {

constexpr std::chrono::milliseconds longest{std::chrono::minutes(10)};

PayloadSequencer::Limits liveLimits() {
  PayloadSequencer::Limits limits;
  limits.waitingBytes = ByteBudget::defaultLimit;
  return limits;
}

}  // namespace

LiveReceiver::LiveReceiver(std::shared_ptr<StreamContext> context, std::shared_ptr<NatsConnection> connection,
                           std::string subject)
    : NatsReceiver(std::move(context), std::move(connection), liveLimits()), _subject(std::move(subject)) {}

void LiveReceiver::open() {
  auto subscription = _connection->subscribe(_subject, pendingLimits);
  _connection->confirm(confirmTimeout);
  _subscription = std::move(subscription);
}

void LiveReceiver::interrupt() {
  if (_subscription) _subscription->end();
}

void LiveReceiver::run() {
  _clock = ArrivalClock(Clock::now());
  while (!stopped()) {
    natsMsg* raw = nullptr;
    const natsStatus status = _subscription->next(&raw, waitFor(longest));
    auto message = share(raw);
    const TimePoint now = beginTurn(_subscription->waiting());
    if (status == NATS_OK) {
      deliver(identify(std::move(message)), now);
      endTurn();
    } else if (status == NATS_TIMEOUT) {
      reportDropped();
      _pipeline->tick(now);
    } else if (status == NATS_NO_RESPONDERS) {  // so the client calls a message that says so, whoever sent it
      refuse({});
    } else if (status == NATS_SLOW_CONSUMER) {
      reportDropped();
    } else {
      return reportClosed();
    }
  }
}

void LiveReceiver::reportDropped() {
  const std::uint64_t dropped = _subscription->newlyDropped();
  if (dropped == 0) return;
  _errors->report("the data callback is too slow: " + std::to_string(dropped) +
                  " messages were dropped, for more than " + std::to_string(pendingLimits.bytes) +
                  " bytes waited or the connection was lost once more");
}

}  // namespace kestrel::streams
