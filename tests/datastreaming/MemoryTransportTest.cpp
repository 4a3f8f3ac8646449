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

const TransportCase memoryCase{.name = "Memory", .make = [](std::uint64_t queueLimit) {
                                 return std::make_unique<MemoryFixture>(queueLimit);
                               }};

class MemoryTransportTest : public testing::Test {
 protected:
  auto producer(const std::string& id) {
    auto result = _factory->createProducer(_factory->getStream(id, {}), {});
    result->start().get();
    return result;
  }
  auto consumer(const std::string& id, datastreaming::DataCallback callback) {
    auto result = _factory->createConsumer(_factory->getStream(id, {}));
    result->setDataCallback(std::move(callback));
    result->start().get();
    return result;
  }

  MemoryFixture _fixture{10'000};
  std::shared_ptr<datastreaming::StreamsFactory> _factory = _fixture.makeFactory();
};

TEST_F(MemoryTransportTest, FirstConsumerGetsWhatWasSentBeforeItCameInOrder) {
  const auto sender = producer("s");
  (void)sendText(*sender, "a");
  sendPieces(*sender, "bcd", 1);
  Inbox first, second;
  const auto one = consumer("s", first.callback());
  const auto two = consumer("s", second.callback());
  (void)sendText(*sender, "e");
  EXPECT_THAT(first.waitTexts(5), ElementsAre("a", "b", "c", "d", "e"));
  EXPECT_THAT(second.waitTexts(1), ElementsAre("e"));
}

TEST_F(MemoryTransportTest, KeepsMessagesAgainWhenTheLastConsumerHasGone) {
  const auto sender = producer("s");
  Inbox first, second;
  auto one = consumer("s", first.callback());
  (void)sendText(*sender, "a");
  first.wait(1);
  one.reset();
  (void)sendText(*sender, "b");
  const auto two = consumer("s", second.callback());
  EXPECT_THAT(second.waitTexts(1), ElementsAre("b"));
}

TEST_F(MemoryTransportTest, WhatIsKeptIsBoundedAndTheRefusalSaysSo) {
  const auto sender = producer("s");
  int accepted = 0;
  std::string refusal;
  while (refusal.empty() && accepted < 100) {
    const std::string outcome = outcomeOf(sendText(*sender, std::string(900, 'x')));
    outcome == "accepted" ? (void)++accepted : (void)(refusal = outcome);
  }
  EXPECT_EQ(accepted, 8);
  EXPECT_THAT(refusal, HasSubstr("10000"));
  Inbox inbox;
  const auto receiver = consumer("s", inbox.callback());
  inbox.wait(8);
  EXPECT_EQ(_factory->statistics()[0].refused, 1U);
}

TEST_F(MemoryTransportTest, SlowConsumerRefusesForAllSoThatNoneGetsLess) {
  Door go, entered;
  Inbox fast, slow;
  const auto quick = consumer("s", fast.callback());
  const auto blocked = consumer("s", [&](const auto* data, auto size, const auto& id, auto& attributes) {
    entered.open();
    go.pass("the test to go on");
    slow.callback()(data, size, id, attributes);
  });
  const auto sender = producer("s");
  (void)sendText(*sender, "first");
  entered.pass("the slow consumer");
  std::size_t accepted = 1;
  for (int i = 0; i < 100; ++i) {
    if (outcomeOf(sendText(*sender, std::string(1000, 'x'))) == "accepted") ++accepted;
  }
  go.open();
  EXPECT_LT(accepted, 12U);
  EXPECT_EQ(slow.wait(accepted).size(), fast.wait(accepted).size());
}

TEST_F(MemoryTransportTest, FinishesThePayloadInProgressFromItsReserveWhenOthersFillTheQueue) {
  Inbox inbox;
  const auto receiver = consumer("s", inbox.callback());
  const auto first = producer("s");
  const auto others = producer("s");
  (void)sendText(*first, "begin", pieceAttributes(false));
  inbox.wait(1);
  std::string outcome = "accepted";
  while (outcome == "accepted") {
    outcome = outcomeOf(sendText(*others, std::string(500, 'o'), pieceAttributes(false)));
  }
  EXPECT_EQ(outcomeOf(sendText(*first, std::string(1000, 'f'), pieceAttributes(false))), "accepted");
  EXPECT_EQ(outcomeOf(sendText(*first, "end", pieceAttributes(true))), "accepted");
  EXPECT_THAT(inbox.wait(3)[2].text, "end");
}

TEST_F(MemoryTransportTest, StreamIsForgottenWithItsLastHolder) {
  auto sender = producer("s");
  (void)sendText(*sender, "kept as long as the producer lives");
  sender.reset();
  Inbox inbox;
  const auto receiver = consumer("s", inbox.callback());
  const auto next = producer("s");
  (void)sendText(*next, "new");
  EXPECT_THAT(inbox.waitTexts(1), ElementsAre("new"));
}

TEST_F(MemoryTransportTest, FactoriesMeetInTheNamesOfTheProcess) {
  StreamsFactoryImpl one, two;
  one.configure({{datastreaming::DataSteamingConfig::DATASTREAMING_SERIVCE_URL, std::string("memory:")}});
  Inbox inbox;
  const auto receiver = two.createConsumer(two.getStream("meeting point", {}));
  receiver->setDataCallback(inbox.callback());
  receiver->start().get();
  const auto sender = one.createProducer(one.getStream("meeting point", {}), {});
  sender->start().get();
  (void)sendText(*sender, "hello");
  EXPECT_THAT(inbox.waitTexts(1), ElementsAre("hello"));
  EXPECT_EQ(one.statistics()[0].messagesReceived, 0U) << "each counts what passed its own ends";
}

TEST(MemoryTransport, PayloadThatFallsSilentIsEndedWithoutFurtherTraffic) {
  PayloadSequencer::Limits limits;
  limits.silence = std::chrono::milliseconds(20);
  MemoryFixture fixture(10'000, limits);
  const auto factory = fixture.makeFactory();
  const auto stream = factory->getStream("s", {});
  Inbox inbox;
  const auto receiver = factory->createConsumer(stream);
  receiver->setDataCallback(inbox.callback());
  receiver->start().get();
  const auto sender = factory->createProducer(stream, {});
  sender->start().get();
  (void)sendText(*sender, "begin", pieceAttributes(false));
  EXPECT_THAT(inbox.waitTexts(2), ElementsAre("begin", ""));
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Memory, TransportSuite, testing::Values(memoryCase));

}  // namespace kestrel::streams
