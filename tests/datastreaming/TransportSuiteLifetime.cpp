#include <gtest/gtest.h>

#include <atomic>

#include "TransportSuite.hpp"

namespace kestrel::streams {

using datastreaming::AttributeMap;
using testing::ElementsAre;

TEST_P(TransportSuite, NoCallbackRunsOnceTheConsumerIsDestroyedUnderAFlood) {
  std::atomic<bool> stop = false;
  const auto stream = open("s");
  // Where several may listen, the flood does not pile up between the rounds.
  Consumer keeper;
  if (GetParam().broadcasts) keeper = startConsumer(stream, [](const auto*, auto, const auto&, auto&) {});
  std::vector<std::thread> flood;
  for (int i = 0; i < 2; ++i) {
    flood.emplace_back([&, producer = startProducer(stream)] {
      while (!stop) {
        sendPieces(*producer, "flooding", 2);
        std::this_thread::yield();
      }
    });
  }
  for (int round = 0; round < 50; ++round) {
    auto alive = std::make_unique<std::atomic<int>>(0);  // the callback of a dead consumer would touch it
    Door called;
    auto consumer = startConsumer(stream, [&, counter = alive.get()](const auto*, auto, const auto&, auto&) {
      if (++*counter == 3) called.open();
    });
    called.pass("some messages of the flood");
    consumer.reset();
    alive.reset();
  }
  stop = true;
  for (auto& thread : flood) thread.join();
}

TEST_P(TransportSuite, ConsumerMayBeDestroyedInItsOwnCallback) {
  const auto stream = open("s");
  const auto producer = startProducer(stream);
  for (int round = 0; round < 20; ++round) {
    Door started, destroyed;
    std::atomic<int> calls = 0;
    auto consumer = _factory->createConsumer(stream);
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

TEST_P(TransportSuite, StartNeedsNoDeliveryThread) {
  const auto stream = open("s");
  const auto reply = open("reply");
  Inbox inbox;
  Consumer inner;
  Producer answering;
  auto outer = startConsumer(stream, [&](const auto*, auto, const auto&, auto&) {
    inner = startConsumer(reply, inbox.callback());
    answering = startProducer(reply);
    (void)sendText(*answering, "answer");
  });
  (void)sendText(*startProducer(stream), "question");
  EXPECT_THAT(inbox.waitTexts(1), ElementsAre("answer"));
  outer.reset();
}

TEST_P(TransportSuite, EndsOutliveTheirStreamAndTheirFactory) {
  Inbox inbox;
  auto stream = open("s");
  const auto consumer = startConsumer(stream, inbox.callback());
  const auto producer = startProducer(stream);
  stream.reset();
  _factory.reset();
  (void)sendText(*producer, "still here");
  EXPECT_THAT(inbox.waitTexts(1), ElementsAre("still here"));
}

TEST_P(TransportSuite, ProducerDestroyedWithinAPayloadEndsIt) {
  Inbox inbox;
  const auto stream = open("s");
  const auto consumer = startConsumer(stream, inbox.callback());
  auto broken = startProducer(stream);
  (void)sendText(*broken, "begun", pieceAttributes(false));
  const auto other = startProducer(stream);
  sendPieces(*other, "whole", 3);
  EXPECT_THAT(inbox.waitTexts(1), ElementsAre("whole")) << "nobody waits for another payload";
  broken.reset();
  EXPECT_TRUE(eventually("the loss to be counted", [&] { return statistics().lost == 1; }));
  EXPECT_THAT(statistics().lastError, testing::HasSubstr("payload"));
}

TEST_P(TransportSuite, FuturesOutliveTheirProducer) {
  const auto stream = open("s");
  Inbox inbox;
  const auto consumer = startConsumer(stream, inbox.callback());
  auto producer = startProducer(stream, "YES");
  const auto sent = sendText(*producer, "a");
  producer.reset();
  EXPECT_EQ(outcomeOf(sent), "accepted");
  EXPECT_THAT(inbox.waitTexts(1), ElementsAre("a"));
}

TEST_P(TransportSuite, ErrorCallbackMaySendAndDropItsOwnProducer) {
  const auto stream = open("s");
  Inbox inbox;
  const auto consumer = startConsumer(stream, inbox.callback());
  auto producer = startProducer(stream);
  Door dropped;
  producer->setErrorCallback([&](const std::exception&) {
    (void)sendText(*producer, "from the error callback");
    producer.reset();
    dropped.open();
  });
  (void)sendText(*producer, "x", {{"COMPRESSIONTYPE", 1L}});
  dropped.pass("the error callback");
  EXPECT_THAT(inbox.waitTexts(1), ElementsAre("from the error callback"));
}

TEST_P(TransportSuite, NoErrorCallbackRunsOnceItsProducerIsDestroyed) {
  const auto stream = open("s");
  for (int round = 0; round < 50; ++round) {
    auto alive = std::make_unique<std::atomic<int>>(0);
    auto producer = startProducer(stream);
    producer->setErrorCallback([counter = alive.get()](const std::exception&) { ++*counter; });
    for (int i = 0; i < 20; ++i) (void)sendText(*producer, "x", {{"COMPRESSIONTYPE", 1L}});
    producer.reset();
    alive.reset();
  }
}

}  // namespace kestrel::streams
