#include <gtest/gtest.h>

#include <algorithm>
#include <kestrel/datastreaming/Keys.hpp>
#include <kestrel/diagnostics/RecordObserver.hpp>

#include "CuttingProxy.hpp"
#include "NatsFaults.hpp"

namespace kestrel::streams {
namespace {

using datastreaming::AttributeMap;
using datastreaming::ConnectionState;
using testing::AllOf;
using testing::HasSubstr;

class NatsReconnectTest : public NatsFaultsTest {};

testing::AssertionResult comesBack(const Ends& ends, std::uint64_t times = 1) {
  return eventually("the connection to come back", [&] { return ends.statistics().reconnects >= times; });
}

constexpr std::size_t payloadSize = 300'000;
constexpr std::size_t pieceSize = 100'000;

TEST_F(NatsReconnectTest, LossAtEitherEndOfAProducersMessagesIsCounted) {
  Inbox inbox;
  Ends ends{factory("live")};
  ends.startConsumer(inbox.callback());
  std::uint64_t sent = 0;
  const auto send = [&](std::size_t count) {
    for (std::size_t i = 0; i < count; ++i, ++sent) (void)sendText(*ends.producer, numbered(i, 100'000));
  };
  auto lose = [&, times = 0ULL](std::size_t count) mutable {
    _server->freeze();  // what is sent now lies in its socket and dies with it
    send(count);
    _server->kill();
    _server->start();
    ASSERT_TRUE(comesBack(ends, ++times));
  };
  const auto accounted = [&] { return inbox.size() + ends.statistics().lost == sent; };
  ends.startProducer();
  lose(20);  // its beginning
  send(1);
  ASSERT_TRUE(eventually("the lost beginning to be counted", accounted));
  lose(20);  // its end
  ends.producer.reset();
  ASSERT_TRUE(eventually("the lost end to be counted", accounted));
  EXPECT_GT(ends.statistics().lost, 1U) << "nothing was lost, so this proves nothing";
}

TEST_F(NatsReconnectTest, LiveLossIsCountedAndReportedAndTrafficResumes) {
  Inbox inbox, errors;
  Joiner joiner(inbox);
  Ends ends{factory("live")};
  ends.startConsumer(joiner.callback(), [&](const std::exception& error) {
    errors.add({error.what(), "", {}});
  });
  ends.startProducer();
  std::size_t sent = 0;
  const auto send = [&] { sendPieces(*ends.producer, numbered(sent++, payloadSize), pieceSize); };
  while (sent < 10) send();
  inbox.wait(10);
  _server->freeze();  // what is sent now lies in its socket and dies with it
  while (sent < 13) send();
  _server->kill();
  _server->start();
  ASSERT_TRUE(comesBack(ends));
  const std::string last = numbered(1000, payloadSize);
  const auto lastArrived = [&] {
    sendPieces(*ends.producer, last, pieceSize);
    const auto received = inbox.wait(1);
    return received.back().text == last;
  };
  ASSERT_TRUE(eventually("traffic to resume", lastArrived));
  std::size_t previous = 0;
  for (const auto& text : inbox.waitTexts(1)) {
    if (text == last || text.size() < payloadSize) continue;  // a torn payload is no whole one
    const std::size_t number = std::stoul(text);
    ASSERT_EQ(text, numbered(number, payloadSize));
    ASSERT_GE(number, previous);
    previous = number;
  }
  EXPECT_GT(ends.statistics().lost, 0U);
  EXPECT_THAT(errors.wait(1)[0].text, AllOf(HasSubstr("faults"), HasSubstr("missing"), HasSubstr("lost")));
}

TEST_F(NatsReconnectTest, MessageBeyondTheServersLimitIsRefusedWithBothNumbersAlsoAfterTheLimitChanged) {
  Ends ends{factory("live")};
  ends.startProducer();
  EXPECT_EQ(outcomeOf(sendText(*ends.producer, std::string(1'000'000, 'x'))), "accepted");
  EXPECT_THAT(outcomeOf(sendText(*ends.producer, std::string(1'048'570, 'x'))),
              AllOf(HasSubstr("1048576"), HasSubstr("of them headers")));
  _server->kill();
  _server->options.maxPayload = 5000;
  _server->start();
  ASSERT_TRUE(comesBack(ends));
  EXPECT_THAT(outcomeOf(sendText(*ends.producer, std::string(6000, 'x'))),
              AllOf(HasSubstr("6000"), HasSubstr("max_payload of 5000")));
  EXPECT_EQ(outcomeOf(sendText(*ends.producer, std::string(1000, 'x'))), "accepted");
  EXPECT_EQ(ends.statistics().refused, 2U);
}

TEST_F(NatsReconnectTest, DurableMessageThatTheNextServerDoesNotTakeIsGivenUpAndHoldsNothingUp) {
  Ends ends{factory("durable")};
  ends.startProducer("YES");
  _server->kill();
  const auto large = sendText(*ends.producer, std::string(6000, 'x'));
  const auto small = sendText(*ends.producer, std::string(1000, 'x'));
  _server->options.maxPayload = 5000;
  _server->start();
  EXPECT_THAT(outcomeOf(large), AllOf(HasSubstr("given up"), HasSubstr("max_payload of 5000")));
  EXPECT_EQ(outcomeOf(small), "accepted");
  EXPECT_EQ(ends.statistics().lost, 1U);
}

TEST_F(NatsReconnectTest, LiveAcknowledgementFailsWhenTheConnectionIsLostBeforeIt) {
  Ends ends{factory("live")};
  ends.startProducer("YES");
  EXPECT_EQ(outcomeOf(sendText(*ends.producer, "a")), "accepted");
  _server->freeze();
  const auto lost = sendText(*ends.producer, "b");
  _server->kill();
  EXPECT_THAT(outcomeOf(lost), HasSubstr("connection was lost"));
  const auto waits = sendText(*ends.producer, "c");
  _server->start();
  EXPECT_EQ(outcomeOf(waits), "accepted");
}

TEST_F(NatsReconnectTest, WhatCameInBeforeTheConnectionWasLostIsStillDelivered) {
  Inbox inbox, errors;
  Door entered, go;
  Ends ends{factory("live")};
  ends.startConsumer(
      [&](const std::uint8_t* data, std::uint64_t size, const std::string& id, AttributeMap& a) {
        entered.open();
        go.pass("the connection to come back");
        inbox.callback()(data, size, id, a);
      },
      [&](const std::exception& error) {
        errors.add({error.what(), "", {}});
      });
  ends.startProducer("YES");
  std::size_t sent = 0;
  const auto accepted = [&] { return outcomeOf(sendText(*ends.producer, std::to_string(sent++))); };
  while (sent < 20) ASSERT_EQ(accepted(), "accepted");  // its echo came behind it
  entered.pass("the first message");
  for (std::uint64_t lost = 1; lost <= 2; ++lost) {
    _server->kill();
    _server->start();
    ASSERT_TRUE(comesBack(ends, lost));
    ASSERT_EQ(accepted(), "accepted");
  }
  go.open();
  const auto texts = inbox.waitTexts(21);
  for (std::size_t i = 0; i < 20; ++i) EXPECT_EQ(texts[i], std::to_string(i));
  EXPECT_EQ(texts[20], "21") << "20 came in over a session that was lost before it was begun with";
  EXPECT_EQ(ends.statistics().lost, 1U);
  EXPECT_THAT(errors.waitTexts(2), testing::Contains(HasSubstr("1 messages were dropped")));
}

TEST_F(NatsReconnectTest, StatisticsSayHowTheConnectionStandsAndThatItIsBackIsNoError) {
  std::atomic<int> errors = 0;
  const diagnostics::RecordObserver log([&](const diagnostics::Record& record) {
    if (record.severity == diagnostics::Severity::error) errors += record.text.ends_with("is back");
  });
  Ends ends{factory("live")};
  const auto connected = ends.statistics();
  EXPECT_EQ(connected.connection, ConnectionState::connected);
  EXPECT_GT(connected.connectionSince, std::chrono::system_clock::now() - std::chrono::minutes(10));
  _server->kill();
  const auto failsWith = [&](const std::string& why) {
    return ends.statistics().connectionFailure.find(why) != std::string::npos;
  };
  ASSERT_TRUE(eventually("the loss to show", [&] { return failsWith("lost"); }));
  const auto lost = ends.statistics();
  ASSERT_TRUE(eventually("an attempt to fail", [&] { return failsWith("No server available"); }));
  EXPECT_EQ(ends.statistics().connection, ConnectionState::away);
  EXPECT_EQ(ends.statistics().connectionSince, lost.connectionSince) << "it has been away all the time";
  _server->start();
  ASSERT_TRUE(comesBack(ends));
  EXPECT_EQ(ends.statistics().connection, ConnectionState::connected);
  EXPECT_EQ(ends.statistics().connectionFailure, "");
  EXPECT_GT(ends.statistics().connectionSince, lost.connectionSince);
  EXPECT_EQ(errors, 0);
}

TEST_F(NatsReconnectTest, ConnectionIsClosedForGoodAfterItsAttemptsAndTheNextStreamGetsANewOne) {
  Inbox inbox, errors;
  Ends ends{factory("live", "&wsMaxReconnAttempts=2")};
  ends.startConsumer(inbox.callback(), [&](const std::exception& error) {
    errors.add({error.what(), "", {}});
  });
  ends.startProducer("YES");
  _server->kill();
  EXPECT_THAT(errors.waitTexts(1)[0],
              AllOf(HasSubstr("no more messages will come"), HasSubstr("No server available")));
  EXPECT_THAT(outcomeOf(sendText(*ends.producer, "late")), HasSubstr("closed for good"));
  EXPECT_EQ(ends.statistics().connection, ConnectionState::closed);
  EXPECT_THAT(ends.statistics().connectionFailure, HasSubstr("No server available"));
  _server->start();
  Ends again{ends.factory, ends.factory->getStream("again", {})};
  again.startConsumer(inbox.callback());
  again.startProducer();
  (void)sendText(*again.producer, "new");
  EXPECT_EQ(inbox.waitTexts(1)[0], "new");
}

/// A stream whose consumer's first connection is cut after so many bytes.
class Victim {
 public:
  Victim(const NatsServer& server, const std::string& delivery, const Ends& sending, std::size_t cut,
         std::size_t size)
      : _proxy(server.port(), cut),
        _size(size),
        _sending{sending.factory, sending.factory->getStream("cut" + std::to_string(cut), {})},
        _receiving{natsFactory(_proxy.url("wsFirstReconnBackoffMs=20&delivery=" + delivery))} {
    _receiving.stream = _receiving.factory->getStream("cut" + std::to_string(cut), {});
    _receiving.startConsumer(_inbox.callback());
    _sending.startProducer();
  }

  void send() { (void)sendText(*_sending.producer, numbered(_sent++, _size)); }
  /// Whether messages have come that were sent when the connection had come back.
  [[nodiscard]] bool hasResumed() {
    if (_receiving.statistics().reconnects == 0 || _inbox.size() == 0) return false;
    if (_before == 0) _before = _sent;
    const auto texts = _inbox.waitTexts(1);
    return std::stoul(texts.back()) >= _before + 5;
  }
  void check(bool all) {
    std::size_t next = 0;
    for (const auto& text : _inbox.waitTexts(1)) {
      const std::size_t number = std::stoul(text);
      ASSERT_EQ(text, numbered(number, _size));
      ASSERT_GE(number, next);
      ASSERT_TRUE(number == next || !all) << number << " came for " << next;
      next = number + 1;
    }
  }

 private:
  CuttingProxy _proxy;
  const std::size_t _size;
  Inbox _inbox;
  Ends _sending, _receiving;
  std::size_t _sent = 0;
  std::size_t _before = 0;
};

class NatsCutTest : public NatsFaultsTest, public testing::WithParamInterface<const char*> {};

TEST_P(NatsCutTest, TrafficResumesWhereverTheConnectionIsCut) {
  constexpr std::size_t opening = 8000;  // what comes while a consumer starts takes less
  Ends sending{factory(GetParam())};
  std::vector<std::unique_ptr<Victim>> victims;
  const auto add = [&](std::size_t cut, std::size_t size) {
    victims.push_back(std::make_unique<Victim>(*_server, GetParam(), sending, cut, size));
  };
  for (std::size_t i = 0; i < 24; ++i)
    add(opening + 13 * i, 100);  // a message of 100 takes less than 24 * 13
  add(3 * payloadSize + payloadSize / 2, payloadSize);
  const auto allResumed = [&] {
    for (const auto& victim : victims) victim->send();
    return std::ranges::all_of(victims, [](const auto& victim) { return victim->hasResumed(); });
  };
  ASSERT_TRUE(eventually("traffic to resume", allResumed));
  for (const auto& victim : victims) victim->check(GetParam() == std::string("durable"));
}

INSTANTIATE_TEST_SUITE_P(Nats, NatsCutTest, testing::Values("live", "durable"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace kestrel::streams
