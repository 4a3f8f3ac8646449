#include "transports/memory/MemoryTransport.hpp"

#include <gtest/gtest.h>

#include "TransportSuite.hpp"
#include "src/StreamsFactoryImpl.hpp"

namespace kestrel::streams {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class MemoryFixture final : public TransportFixture {
 public:
  explicit MemoryFixture(std::uint64_t queueLimit, const PayloadSequencer::Limits& limits = {})
      : _streams(queueLimit), _limits(limits) {}

  std::shared_ptr<datastreaming::StreamsFactory> makeFactory() override {
    return std::make_shared<StreamsFactoryImpl>(
        [this](const ServiceSettings&) { return std::make_shared<MemoryTransport>(_streams, _limits); });
  }

 private:
  MemoryStreams _streams;
  const PayloadSequencer::Limits _limits;
};

class MemoryTransportTest : public testing::Test {
 protected:
  auto producer() {
    auto result = _factory->createProducer(_factory->getStream("s", {}), {});
    result->start().get();
    return result;
  }
  auto consumer(datastreaming::DataCallback callback) {
    auto result = _factory->createConsumer(_factory->getStream("s", {}));
    result->setDataCallback(std::move(callback));
    result->start().get();
    return result;
  }

  MemoryFixture _fixture{10'000};
  MemoryFixture _hasty{10'000, {.silence = std::chrono::milliseconds(20)}};
  std::shared_ptr<datastreaming::StreamsFactory> _factory = _fixture.makeFactory();
};

TEST_F(MemoryTransportTest, KeepsMessagesInOrderForTheFirstConsumerToCome) {
  const auto sender = producer();
  for (int round = 0; round < 2; ++round) {  // and again when the last consumer has gone
    (void)sendText(*sender, "a");
    sendPieces(*sender, "bcd", 1);
    Inbox first, second;
    const auto one = consumer(first.callback());
    const auto two = consumer(second.callback());
    (void)sendText(*sender, "e");
    EXPECT_THAT(first.waitTexts(3), ElementsAre("a", "bcd", "e"));
    EXPECT_THAT(second.waitTexts(1), ElementsAre("e"));
  }
}

TEST_F(MemoryTransportTest, WhatIsKeptIsBoundedAndTheRefusalSaysSo) {
  const auto sender = producer();
  for (int i = 0; i < 8; ++i) EXPECT_EQ(outcomeOf(sendText(*sender, std::string(900, 'x'))), "accepted");
  EXPECT_THAT(outcomeOf(sendText(*sender, std::string(900, 'x'))), HasSubstr("10000"));
  Inbox inbox;
  const auto receiver = consumer(inbox.callback());
  inbox.wait(8);
  EXPECT_EQ(_factory->statistics()[0].refused, 1U);
}

TEST_F(MemoryTransportTest, SlowConsumerRefusesForAllSoThatNoneGetsLess) {
  Door go, entered;
  Inbox fast;
  const auto quick = consumer(fast.callback());
  auto blocked = consumer([&](const auto*, auto, const auto&, auto&) {
    entered.open();
    go.pass("the test to go on");
  });
  const auto sender = producer();
  (void)sendText(*sender, "first");
  entered.pass("the slow consumer");
  std::size_t accepted = 1;
  while (accepted < 100 && outcomeOf(sendText(*sender, std::string(1000, 'x'))) == "accepted") ++accepted;
  EXPECT_LT(accepted, 12U);
  go.open();
  blocked.reset();
  (void)sendText(*sender, "last");
  EXPECT_EQ(fast.wait(accepted + 1)[accepted].text, "last") << "the quick one got a refused message";
}

TEST_F(MemoryTransportTest, CountsAndReportsWhatAConsumerLeavesAndWhatNobodyEverReads) {
  Door entered, go;
  auto leaving = consumer([&](const auto*, auto, const auto&, auto&) {
    entered.open();
    go.pass("the test to go on");
  });
  {
    const auto sender = producer();
    (void)sendText(*sender, "handled");
    entered.pass("the consumer");
    (void)sendText(*sender, "left");
    sendPieces(*sender, "left", 1);
    auto destruction = std::async(std::launch::async, [&] { leaving.reset(); });
    ASSERT_EQ(destruction.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    go.open();
    destruction.get();
    EXPECT_EQ(_factory->statistics()[0].messagesReceived, 1U);
    EXPECT_EQ(_factory->statistics()[0].lost, 5U);
    EXPECT_THAT(_factory->statistics()[0].lastError, HasSubstr("messages lost: 5"));
    (void)sendText(*sender, "unread");
  }
  EXPECT_EQ(_factory->statistics()[0].lost, 6U);
}

TEST_F(MemoryTransportTest, FactoriesMeetInTheNamesOfTheProcess) {
  _factory = std::make_shared<StreamsFactoryImpl>();
  Inbox inbox;
  const auto receiver = consumer(inbox.callback());
  _factory = std::make_shared<StreamsFactoryImpl>();
  _factory->configure(
      {{datastreaming::DataSteamingConfig::DATASTREAMING_SERIVCE_URL, std::string("memory:")}});
  (void)sendText(*producer(), "hello");
  EXPECT_THAT(inbox.waitTexts(1), ElementsAre("hello"));
  EXPECT_EQ(_factory->statistics()[0].messagesReceived, 0U) << "each counts what passed its own ends";
}

TEST_F(MemoryTransportTest, PayloadThatFallsSilentIsEndedWithoutFurtherTraffic) {
  _factory = _hasty.makeFactory();
  Inbox inbox;
  const auto receiver = consumer(inbox.callback());
  const auto sender = producer();
  (void)sendText(*sender, "begin", pieceAttributes(false));
  EXPECT_TRUE(eventually("the payload to be given up", [&] { return _factory->statistics()[0].lost == 1; }));
  EXPECT_EQ(inbox.size(), 0U) << "no part of a payload is ever delivered";
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Memory, TransportSuite,
                         testing::Values(TransportCase{.name = "Memory",
                                                       .make = [](std::uint64_t queueLimit) {
                                                         return std::make_unique<MemoryFixture>(queueLimit);
                                                       }}));

}  // namespace kestrel::streams
