#include "transports/memory/MemoryTransport.hpp"

#include <gtest/gtest.h>
#include <kestrel/memory/Blocks.hpp>
#include <kestrel/memory/Buffer.hpp>

#include "TransportSuite.hpp"
#include "src/StreamsFactoryImpl.hpp"

namespace kestrel::streams {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// A transport of its own.
TransportUnderTest memoryOf(std::uint64_t queueLimit, const PayloadSequencer::Limits& limits = {}) {
  auto streams = std::make_shared<MemoryStreams>(queueLimit);
  return {streams, std::make_shared<StreamsFactoryImpl>([streams, limits](const ServiceSettings&) {
            return std::make_shared<MemoryTransport>(*streams, limits);
          })};
}

class MemoryTransportTest : public testing::Test {
 protected:
  auto producer() { return startProducer(*_factory, _factory->getStream("s", {})); }
  auto consumer(datastreaming::DataCallback callback) {
    return startConsumer(*_factory, _factory->getStream("s", {}), std::move(callback));
  }
  /// One that notes where the bytes lie that it gets.
  auto notingConsumer(Inbox& inbox) {
    return consumer([this, add = inbox.callback()](auto* data, auto size, auto& id, auto& marks) {
      _places.push_back(data);
      return add(data, size, id, marks);
    });
  }
  /// One that is at its first message until the test lets it go on.
  auto slowConsumer() {
    return consumer([this](const auto*, auto, const auto&, auto&) {
      _entered.open();
      _go.pass("the test to go on");
      _leaving.reset();
    });
  }

  std::shared_ptr<datastreaming::StreamsFactory> _factory = memoryOf(10'000).factory;
  const std::string _kilobyte = std::string(1000, 'x');
  Door _entered, _go;
  std::shared_ptr<datastreaming::Consumer> _leaving;
  std::vector<const std::uint8_t*> _places;  // settled once the inbox has the message
};

TEST_F(MemoryTransportTest, KeepsMessagesInOrderForTheFirstConsumerToCome) {
  _factory = std::make_shared<StreamsFactoryImpl>();
  const auto sender = producer();
  _factory = std::make_shared<StreamsFactoryImpl>();  // they meet in the names of the process
  for (int round = 0; round < 2; ++round) {           // and again when the last consumer has gone
    (void)sendText(*sender, "a");
    sendPieces(*sender, "bcd", 1);
    Inbox first, second;
    const auto one = consumer(first.callback()), two = consumer(second.callback());
    (void)sendText(*sender, "e");
    ASSERT_THAT(first.waitTexts(3), ElementsAre("a", "bcd", "e"));
    EXPECT_THAT(second.waitTexts(1), ElementsAre("e"));
  }
}

/// Three pieces that one payload can share with its sender.
memory::Buffer frozenPieces() {
  memory::Buffer bytes;
  for (const char letter : {'a', 'b', 'c'}) {
    const std::string piece(memory::leastKept, letter);
    bytes.append(piece.data(), piece.size());
  }
  bytes.freeze();
  return bytes;
}

std::string sendPiece(datastreaming::Producer& sender, const memory::Buffer& bytes, std::size_t index,
                      bool last) {
  return outcomeOf(
      sender.send(bytes.data() + index * memory::leastKept, memory::leastKept, pieceAttributes(last)));
}

TEST_F(MemoryTransportTest, PiecesOfFrozenBytesStayWhereTheyAreIfTheyLieOneBehindTheOther) {
  _factory = std::make_shared<StreamsFactoryImpl>();
  const auto bytes = frozenPieces();
  Inbox inbox;
  const auto receiver = notingConsumer(inbox);
  const auto sender = producer();
  (void)sendPiece(*sender, bytes, 0, false), (void)sendPiece(*sender, bytes, 1, true);
  (void)sendPiece(*sender, bytes, 1, false), (void)sendPiece(*sender, bytes, 0, true);
  const auto texts = inbox.waitTexts(2);
  EXPECT_EQ(_places.front(), bytes.data());
  EXPECT_NE(_places.back(), bytes.data());
  EXPECT_TRUE(texts[0].starts_with('a') && texts[0].ends_with('b'));
  EXPECT_TRUE(texts[1].starts_with('b') && texts[1].ends_with('a')) << texts[1].back();
}

TEST_F(MemoryTransportTest, WhoeverSharesAPieceIsChargedForAllThatItKeepsOrCopiesIt) {
  _factory = memoryOf(300'000).factory;
  const auto sender = producer();
  const auto bytes = frozenPieces();
  EXPECT_EQ(sendPiece(*sender, bytes, 0, true), "accepted");
  EXPECT_THAT(outcomeOf(sendText(*sender, std::string(150'000, 'x'))), HasSubstr("300000"));
  EXPECT_EQ(sendPiece(*sender, bytes, 1, true), "accepted") << "there is room for a copy of it alone";
  Inbox inbox;
  const auto receiver = notingConsumer(inbox);
  EXPECT_TRUE(inbox.waitTexts(2)[1].starts_with('b'));
  EXPECT_EQ(_places[0], bytes.data());
}

TEST_F(MemoryTransportTest, WhatIsKeptIsBoundedUntilItIsHandledAndTheRefusalSaysSo) {
  const auto sender = producer();
  for (int i = 0; i < 7; ++i) EXPECT_EQ(outcomeOf(sendText(*sender, _kilobyte)), "accepted");
  EXPECT_THAT(outcomeOf(sendText(*sender, _kilobyte)), HasSubstr("10000"));
  const auto slow = slowConsumer();
  _entered.pass("the first message");
  EXPECT_THAT(outcomeOf(sendText(*sender, _kilobyte)), HasSubstr("10000")) << "all were only taken over";
  _go.open();
}

TEST_F(MemoryTransportTest, SlowConsumerRefusesForAllSoThatNoneGetsLess) {
  Inbox fast;
  const auto quick = consumer(fast.callback());
  auto slow = slowConsumer();
  const auto sender = producer();
  (void)sendText(*sender, "first");
  _entered.pass("the slow consumer");
  std::size_t accepted = 1;
  while (accepted < 100 && outcomeOf(sendText(*sender, _kilobyte)) == "accepted")
    fast.wait(++accepted);  // so that the quick one has room for the next
  EXPECT_LT(accepted, 12U);
  _go.open();
  slow.reset();
  (void)sendText(*sender, "last");
  EXPECT_EQ(fast.wait(accepted + 1)[accepted].text, "last") << "the quick one got a refused message";
}

TEST_F(MemoryTransportTest, CountsAndReportsWhatAConsumerLeavesAndWhatNobodyEverReads) {
  auto sender = producer();
  (void)sendText(*sender, "handled");
  (void)sendText(*sender, "left where it was taken to");
  _leaving = slowConsumer();
  _entered.pass("the first message");
  sendPieces(*sender, "left", 1);  // in the queue
  const auto statistics = [&] { return _factory->statistics()[0]; };
  const auto reported = [&] { return statistics().lastError.ends_with("messages lost: 5"); };
  _go.open();
  EXPECT_TRUE(eventually("what was left to be reported", reported));
  EXPECT_EQ(statistics().messagesReceived, 1U);
  EXPECT_EQ(statistics().lost, 5U);
  (void)sendText(*sender, "unread");
  sender.reset();
  EXPECT_TRUE(eventually("what nobody reads to be counted", [&] { return statistics().lost == 6; }));
}

TEST_F(MemoryTransportTest, PayloadThatFallsSilentIsEndedWithoutFurtherTraffic) {
  _factory = memoryOf(10'000, {.silence = std::chrono::milliseconds(20)}).factory;
  Inbox inbox;
  const auto receiver = consumer(inbox.callback());
  const auto sender = producer();
  (void)sendText(*sender, "begin", pieceAttributes(false));
  EXPECT_TRUE(eventually("the payload to be given up", [&] { return _factory->statistics()[0].lost == 1; }));
  EXPECT_EQ(inbox.size(), 0U) << "no part of a payload is ever delivered";
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Memory, TransportSuite,
                         testing::Values(TransportCase{
                             .name = "Memory",
                             .make = [](std::uint64_t queueLimit) { return memoryOf(queueLimit); }}));

}  // namespace kestrel::streams
