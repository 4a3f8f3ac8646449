#include "transports/nats/live/LiveReceiver.hpp"

#include <utility>

namespace kestrel::streams {

namespace {

constexpr std::chrono::milliseconds longest{std::chrono::minutes(10)};
constexpr std::chrono::milliseconds slice{250};  // how soon a connection that is away is noticed

}  // namespace

LiveReceiver::LiveReceiver(std::shared_ptr<StreamContext> context, std::shared_ptr<NatsConnection> connection,
                           std::string subject, const PayloadSequencer::Limits& limits)
    : NatsReceiver(std::move(context), std::move(connection), limits), _subject(std::move(subject)) {}

void LiveReceiver::open() {
  auto subscription = _connection->subscribe(_subject, pendingLimits);
  _connection->confirm(confirmTimeout);
  _pipeline->begin(Clock::now());
  _subscription = std::move(subscription);
}

void LiveReceiver::interrupt() {
  if (_subscription) _subscription->end();
}

void LiveReceiver::run() {
  while (!stopped()) {
    natsMsg* raw = nullptr;
    const TimePoint asked = Clock::now();
    const auto most = reportRefused() ? Throttle::interval : longest;
    const natsStatus status = _subscription->next(&raw, waitFor(_pipeline->deadline() ? slice : most));
    auto message = share(raw);
    passTime(_connection->currentSession() == 0);
    beginTurn(_subscription->waiting(), asked);
    if (status == NATS_OK) {
      deliver(identify(std::move(message)));
    } else if (status == NATS_TIMEOUT || status == NATS_SLOW_CONSUMER) {
      reportDropped();
    } else if (status == NATS_NO_RESPONDERS) {  // so the client calls a message that says so, whoever sent it
      refuse({});
    } else {
      reportClosed();
      break;
    }
    endTurn();
  }
  _pipeline->abandon(_subscription->waiting());
}

void LiveReceiver::reportDropped() {
  const std::uint64_t dropped = _subscription->newlyDropped();
  if (dropped == 0) return;
  _errors->report("the data callback is too slow: " + std::to_string(dropped) +
                  " messages were dropped, for more than " + std::to_string(pendingLimits.bytes) +
                  " bytes waited or the connection was lost once more");
}

}  // namespace kestrel::streams
