#include <kestrel/datastreaming/Keys.hpp>

#include "TransportSuite.hpp"

namespace kestrel::streams {

using datastreaming::AttributeMap;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

/// What no producer takes: an integer where a text belongs.
const AttributeMap wrong{{datastreaming::MessageAttributes::CompressionType, 1L}};

TEST_P(TransportSuite, RefusedPieceTakesTheRestOfItsPayloadAndIsReportedOnceOnAnotherThread) {
  begin("news");
  Inbox errors;
  _producer->setErrorCallback([&, sender = std::this_thread::get_id()](const std::exception& error) {
    EXPECT_NE(std::this_thread::get_id(), sender);
    errors.add({error.what(), "", {}});
  });
  (void)sendText(*_producer, "p1", pieceAttributes(false));
  const auto large = outcomeOf(sendText(*_producer, std::string(1'200'000, 'x'), pieceAttributes(false)));
  EXPECT_THAT(large, AllOf(HasSubstr("news"), HasSubstr("1200000"), HasSubstr(GetParam().mostForOne)));
  EXPECT_THAT(outcomeOf(sendText(*_producer, "p3", pieceAttributes(true))), HasSubstr("earlier piece"));
  const auto mistyped = outcomeOf(sendText(*_producer, "a", wrong));
  EXPECT_THAT(mistyped, AllOf(HasSubstr("COMPRESSIONTYPE"), HasSubstr("text"), HasSubstr("integer")));
  sendPieces(*_producer, "next", 2);
  EXPECT_THAT(_inbox.waitTexts(1), ElementsAre("next"));
  EXPECT_EQ(_inbox.wait(1)[0].attributes, pieceAttributes(true));
  EXPECT_THAT(errors.waitTexts(2), ElementsAre(large, mistyped));
  EXPECT_EQ(statistics().refused, 3U);
  EXPECT_EQ(statistics().lost, 1U) << "the piece that was accepted";
  _producer.reset();
}

TEST_P(TransportSuite, SendBeforeStartIsRefusedAndConsumerWithoutCallbackDoesNotStart) {
  const auto producer = _factory->createProducer(open("s"), {});
  EXPECT_THAT(outcomeOf(sendText(*producer, "a")), HasSubstr("not been started"));
  const auto consumer = _factory->createConsumer(open("s"));
  EXPECT_THROW(consumer->start().get(), std::logic_error);
  consumer->setDataCallback(_inbox.callback());
  consumer->start().get();
  EXPECT_THROW(consumer->setDataCallback(_inbox.callback()), std::logic_error);
}

TEST_P(TransportSuite, NoCallbackRunsOnceTheConsumerIsDestroyedUnderAFlood) {
  // Where several may listen, the flood does not pile up between the rounds.
  if (GetParam().broadcasts) _consumer = consumerOf("s", [](const auto*, auto, const auto&, auto&) {});
  std::jthread flood([producer = producerOf("s")](const std::stop_token& stop) {
    for (; !stop.stop_requested(); std::this_thread::yield()) sendPieces(*producer, "flooding", 2);
  });
  std::atomic<int> alive = 0, late = 0;  // the number of the consumer that lives
  for (int round = 1; round <= 50; ++round) {
    Door called;
    alive = round;
    auto consumer = consumerOf("s", [&, round](const auto*, auto, const auto&, auto&) {
      if (alive != round) return void(++late);
      called.open();
    });
    called.pass("some message of the flood");
    consumer.reset();
    alive = 0;
  }
  EXPECT_EQ(late, 0);
}

TEST_P(TransportSuite, ConsumerMayBeDestroyedInItsOwnCallback) {
  const auto producer = producerOf("s");
  for (int round = 0; round < 20; ++round) {
    Door started, destroyed;
    std::atomic<int> calls = 0;
    auto consumer = _factory->createConsumer(open("s"));
    consumer->setDataCallback([&](const auto*, auto, const auto&, auto&) {
      ++calls;
      started.pass("start() to return");
      consumer.reset();
      destroyed.open();
    });
    (void)consumer->start();  // its future may go with it
    started.open();
    for (int i = 0; i < 5; ++i) (void)sendText(*producer, "x");
    destroyed.pass("the callback to destroy its consumer");
    EXPECT_EQ(calls, 1);
  }
}

TEST_P(TransportSuite, StartNeedsNoDeliveryThreadAndEndsOutliveTheirStreamAndTheirFactory) {
  const auto outer = consumerOf("s", [&](const auto*, auto, const auto&, auto&) {
    begin("reply");
    _factory.reset();
    (void)sendText(*_producer, "answer");
  });
  (void)sendText(*producerOf("s"), "question");
  EXPECT_THAT(_inbox.waitTexts(1), ElementsAre("answer"));
}

TEST_P(TransportSuite, ProducerDestroyedWithinAPayloadEndsIt) {
  begin();
  (void)sendText(*_producer, "begun", pieceAttributes(false));
  sendPieces(*producerOf("s"), "whole", 3);
  EXPECT_THAT(_inbox.waitTexts(1), ElementsAre("whole")) << "nobody waits for another payload";
  _producer.reset();
  EXPECT_TRUE(eventually("the loss to be counted", [&] { return statistics().lost == 1; }));
}

TEST_P(TransportSuite, ErrorCallbackMaySendAndDropAllItsOwnAndThenRunsNoMore) {
  Door dropped;
  std::atomic<int> calls = 0;
  _producer = producerOf("s");
  _producer->setErrorCallback([&](const std::exception&) {
    ++calls;
    (void)sendText(*_producer, "x", wrong);
    EXPECT_EQ(outcomeOf(sendText(*_producer, "right")), "accepted");
    _factory.reset();
    _producer.reset();
    dropped.open();
  });
  (void)sendText(*_producer, "x", wrong);
  dropped.pass("the error callback");
  EXPECT_EQ(calls, 1);
}

}  // namespace kestrel::streams
