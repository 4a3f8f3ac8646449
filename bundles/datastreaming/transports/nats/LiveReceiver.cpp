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
  _subscribed = subscribe(_subject);
  use(_subscribed);
}

void LiveReceiver::run() {
  const auto subscription = std::move(_subscribed);
  _clock = ArrivalClock(Clock::now());
  while (!stopped()) {
    natsMsg* raw = nullptr;
    const natsStatus status = natsSubscription_NextMsg(&raw, subscription.get(), waitFor(longest));
    auto message = share(raw);
    const TimePoint now = beginTurn(subscription.get());
    if (status == NATS_OK) {
      deliver(identify(std::move(message)), now);
      endTurn();
    } else if (status == NATS_SLOW_CONSUMER) {
      reportDropped(subscription.get());
    } else if (status == NATS_TIMEOUT) {
      reportDropped(subscription.get());
      _pipeline->tick(now);
    } else if (status == NATS_NO_RESPONDERS) {  // so the client calls a message that says so, whoever sent it
      refuse({});
    } else {
      return reportClosed();
    }
  }
}

}  // namespace kestrel::streams
