#include <atomic>
#include <semaphore>

#include "MessengerTest.hpp"
#include "kestrel/host/Host.hpp"

namespace library_test {

using LifecycleTest = MessengerTest;

TEST_F(LifecycleTest, DropsMessagesWithoutASendStreamUntilItIsNamed) {
  const auto messenger = make({}, {}, "");
  messenger->send(DataStruct(number(1)));
  EXPECT_EQ(log.count("SendReceiveDataStream::privateSend No producer, no send stream ID."), 1);
  messenger->setSendStreamId("late");
  EXPECT_EQ(messenger->getSendStreamId(), "") << "there is no stream yet";
  messenger->send(DataStruct(number(2)));
  EXPECT_EQ(log.count("SendReceiveDataStream::privateSend late producer init"), 1);
  messenger->setSendStreamId("later");
  messenger->send(DataStruct(number(3)));
  EXPECT_EQ(messenger->getSendStreamId(), "late") << "the producer was made anew";
  EXPECT_EQ(messenger->getReceiveStreamId(), "in");
  EXPECT_EQ(streams->sent().size(), 2U);
}

class FailingStep : public MessengerTest, public testing::WithParamInterface<std::string> {};

TEST_P(FailingStep, FailsTheConstructionButALateProducerIsTriedAgain) {
  const auto late = make({}, {}, "");
  late->setSendStreamId("late");
  streams->onStep = [](const std::string& step) {
    if (step == GetParam()) throw std::domain_error("fault at " + step);
  };
  EXPECT_THROW(make(), std::domain_error);
  EXPECT_THAT(logged(Severity::setup), Contains("create consumer/producer failed: fault at " + GetParam()));
  if (GetParam().ends_with("Consumer")) return;
  for (int i = 0; i < 2; ++i) {
    EXPECT_THROW(late->send(DataStruct(number(1))), std::domain_error);
    EXPECT_EQ(late->getSendStreamId(), "");
  }
  streams->onStep = [](const std::string&) {};
  late->send(DataStruct(number(2)));
  EXPECT_EQ(streams->sent().size(), 1U);
  EXPECT_EQ(late->getSendStreamId(), "late");
}

INSTANTIATE_TEST_SUITE_P(Steps, FailingStep,
                         testing::Values("getStream", "createProducer", "startProducer", "createConsumer",
                                         "startConsumer"));

TEST_F(LifecycleTest, SendsEveryMessageWhenSeveralThreadsSendFirst) {
  for (int round = 0; round < 20; ++round) {
    const auto messenger = make({}, {}, "");
    messenger->setSendStreamId("late");
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        messenger->setSendStreamId(messenger->getSendStreamId() + "late");
        messenger->send(DataStruct(number(1)));
      });
    }
  }
  EXPECT_EQ(streams->sent().size(), 80U);
  EXPECT_EQ(streams->producers.size(), 20U) << "one producer each";
}

TEST_F(LifecycleTest, SaysClearlyThatThereIsNoService) {
  streams = nullptr;
  EXPECT_THAT([&] { make(); }, testing::ThrowsMessage<std::runtime_error>(HasSubstr("service")));
}

TEST_F(LifecycleTest, CopiesErrorHandlersWhenTheEndsAreMade) {
  const auto messenger = make({}, {}, "");
  Lines reported;
  const auto tooLate = [](const std::exception&) { ADD_FAILURE() << "set too late"; };
  messenger->setConsumerErrorHandler(tooLate);
  messenger->setProducerErrorHandler([&](const std::exception& error) { reported.push_back(error.what()); });
  messenger->setSendStreamId("late");
  messenger->send(DataStruct(number(1)));
  messenger->setProducerErrorHandler(tooLate);
  streams->producers.at(0)->error(std::runtime_error("lost it"));
  streams->consumer->error(std::runtime_error("torn"));
  EXPECT_EQ(reported, Lines{"lost it"});
  EXPECT_THAT(logged(Severity::error),
              ElementsAre("Error from Producer: lost it", "Error from Consumer: torn"));
}

TEST_F(LifecycleTest, ReportsAFailedSendToAHandlerThatMaySendItself) {
  const kestrel::host::Host host;
  for (const bool buffered : {false, true}) {
    streams = std::make_shared<FakeStreams>();
    auto messenger = make({{"producerUsesBuffer", buffered}}, {}, "");
    std::atomic<int> sends = 0;
    std::atomic<int> reports = 0;
    streams->onSend = [&] {
      if (sends++ < 2) throw std::domain_error("refused");
    };
    messenger->setProducerErrorHandler([&](const std::exception& error) {
      EXPECT_STREQ(error.what(), "refused");
      messenger->send(DataStruct(number(2)));
      ++reports;
    });
    messenger->setSendStreamId("late");
    messenger->send(DataStruct(number(1)));
    EXPECT_TRUE(eventually("both reports and the message of the second",
                           [&] { return reports == 2 && streams->sent().size() == 1; }));
    EXPECT_LT(timeOf([&] { messenger.reset(); }), 15s);
  }
}

TEST_F(LifecycleTest, ReplacesHandlersWhileMessagesArrive) {
  const auto messenger = make();
  int handled = 0;
  const auto count = [&](const DataStruct&) { ++handled; };
  messenger->setReceiveHandler(count);
  std::jthread setter([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      messenger->setReceiveHandler(count);
      messenger->setRequestHandler([](const DataStruct& request) { return request; });
      messenger->setConsumerErrorHandler([](const std::exception&) {});
    }
  });
  for (int i = 0; i < 500; ++i) deliver(plainMessage);
  EXPECT_EQ(handled, 500);
}

TEST_F(LifecycleTest, KeepsEarlyMessagesForAHandlerThatIsSetAfterwards) {
  const auto messenger = make({}, {.handlerGrace = patience});
  std::atomic<int> handled = 0;
  const std::jthread delivery([&] {
    for (int i = 0; i < 3; ++i) deliver(plainMessage);
  });
  ASSERT_TRUE(soonLogs("received message on consumer in"));
  messenger->setReceiveHandler([&](const DataStruct&) { ++handled; });
  EXPECT_TRUE(eventually("the three early messages", [&] { return handled == 3; }));
}

TEST_F(LifecycleTest, WaitsAQuarterOfASecondForAHandlerAndNoLonger) {
  const auto untilGivenUp = timeOf([&] {
    const auto messenger = make();
    EXPECT_EQ(deliver(plainMessage), Handling::notTaken);
    EXPECT_EQ(deliver(plainMessage), Handling::notTaken);
  });
  EXPECT_GE(untilGivenUp, 250ms);
  const auto failure = HasSubstr(std::bad_function_call().what());
  EXPECT_THAT(logged(Severity::error), ElementsAre(failure, failure));
}

TEST_F(LifecycleTest, WaitsForTheHandlerInFlightWhenItIsDestroyedAndLetsNoneInAfterwards) {
  auto messenger = make();
  std::promise<void> release;
  std::atomic<int> left = 0;
  messenger->setReceiveHandler([&](const DataStruct&) {
    release.get_future().wait();
    ++left;
  });
  std::jthread delivery([&] { deliver(plainMessage); });
  ASSERT_TRUE(soonLogs("received message on consumer in"));
  auto destroyed = std::async(std::launch::async, [&] { messenger.reset(); });
  EXPECT_EQ(destroyed.wait_for(50ms), std::future_status::timeout);
  release.set_value();
  destroyed.get();
  EXPECT_EQ(left, 1);
  delivery.join();
  EXPECT_EQ(deliver(plainMessage), Handling::notTaken);
  EXPECT_EQ(left, 1);
}

TEST_F(LifecycleTest, DestroysTheConsumerBeforeTheProducerAndTheStreamsLast) {
  auto messenger = make();
  streams->producers.clear();  // now only the messenger holds them
  streams->consumer.reset();
  messenger.reset();
  EXPECT_THAT(*streams->destroyed, ElementsAre("consumer in", "producer out", "stream in", "stream out"));
}

TEST_F(LifecycleTest, LetsRequestsWaitWhileTooManyAnswersAreQueued) {
  const kestrel::host::Host host;
  std::counting_semaphore<> leave(0);
  streams->onSend = [&] { (void)leave.try_acquire_for(patience); };
  auto messenger = make({{"producerUsesBuffer", true}}, {.backlogLimit = 1});
  std::atomic<int> served = 0;
  messenger->setRequestHandler([&](const DataStruct& request) {
    ++served;
    return request;
  });
  const auto ask = [&] { return deliver(row({chars("request"), chars("id"), number(1), text("")})); };
  EXPECT_EQ(ask(), Handling::done);
  auto waiting = std::async(std::launch::async, ask);
  ASSERT_TRUE(soonLogs("Requests from stream in wait: "));
  EXPECT_EQ(served, 1);
  leave.release();  // the first answer
  EXPECT_EQ(waiting.get(), Handling::done);
  waiting = std::async(std::launch::async, ask);
  auto destroyed = std::async(std::launch::async, [&] { messenger.reset(); });
  EXPECT_EQ(waiting.get(), Handling::notTaken);
  EXPECT_EQ(served, 2);
  leave.release(2);
}

TEST_F(LifecycleTest, LeavesMessagesThatWaitForAHandlerToTheNextConsumer) {
  const Array request = row({chars("request"), chars("uuid"), number(1), text("")});
  for (const Array& message : {plainMessage, request}) {
    log.clear();
    auto messenger = make({}, {.handlerGrace = patience});
    auto delivered = std::async(std::launch::async, [&] { return deliver(message); });
    ASSERT_TRUE(soonLogs("received message on consumer in"));
    messenger.reset();
    EXPECT_EQ(delivered.get(), Handling::notTaken);
    EXPECT_THAT(logged(Severity::error), IsEmpty()) << "it is not lost";
  }
  EXPECT_THAT(streams->sent(), IsEmpty()) << "the next consumer answers";
}

TEST_F(LifecycleTest, GivesEarlyMessagesTheirTimeFromWhenTheConsumerHasStarted) {
  std::future<Handling> early;
  streams->onStep = [&](const std::string& step) {
    if (step != "startConsumer") return;
    early = std::async(std::launch::async, [&] { return deliver(plainMessage); });
    EXPECT_EQ(early.wait_for(100ms), std::future_status::timeout)
        << "given up before there could be a handler";
  };
  const auto messenger = make({}, {.handlerGrace = 0ms});
  EXPECT_EQ(early.get(), Handling::notTaken);
}

TEST_F(LifecycleTest, EndsTheProcessWhenAHandlerDestroysItsMessenger) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto messenger = make();
  messenger->setReceiveHandler([&](const DataStruct&) { messenger.reset(); });
  EXPECT_DEATH(deliver(plainMessage), "messenger.*handler");
}

}  // namespace library_test
