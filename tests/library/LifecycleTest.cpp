#include <atomic>
#include <semaphore>

#include "MessengerTest.hpp"
#include "kestrel/host/Host.hpp"

namespace library_test {

class LifecycleTest : public MessengerTest {
 protected:
  /// Delivers on a thread of its own.
  std::future<Handling> beginDelivery(const Array& message) {
    return std::async(std::launch::async, [this, message] { return deliver(message); });
  }
  /// A messenger whose send stream is named after it was made.
  std::unique_ptr<SendReceiveDataStream> makeLate(const Options& options = {}) {
    auto messenger = make(options, {}, "");
    messenger->setSendStreamId("late");
    return messenger;
  }
  const DataStruct one{number(1)};
};

TEST_F(LifecycleTest, DropsMessagesWithoutASendStreamUntilItIsNamed) {
  const auto messenger = make({}, {}, "");
  messenger->send(one);
  EXPECT_TRUE(hasLogged("SendReceiveDataStream::privateSend No producer, no send stream ID."));
  messenger->setSendStreamId("late");
  messenger->send(one);
  messenger->setSendStreamId("later");
  messenger->send(one);
  EXPECT_EQ(messenger->getSendStreamId(), "late") << "the producer was made anew";
  EXPECT_EQ(streams->sent().size(), 2U);
}

TEST_F(LifecycleTest, FailsTheConstructionAtAnyStepButTriesALateProducerAgain) {
  for (const std::string failing : {"createProducer", "startProducer", "startConsumer"}) {
    streams = std::make_shared<FakeStreams>();
    const auto late = makeLate();
    streams->onStep = [&](const std::string& step) {
      if (step == failing) throw std::domain_error("fault at " + step);
    };
    EXPECT_THROW(make(), std::domain_error);
    EXPECT_THAT(logged(Severity::setup),
                testing::Contains("create consumer/producer failed: fault at " + failing));
    if (failing.ends_with("Consumer")) continue;
    EXPECT_THROW(late->send(one), std::domain_error);
    streams->onStep = [](const std::string&) {};
    late->send(one);
    EXPECT_EQ(streams->sent().size(), 1U);
  }
}

TEST_F(LifecycleTest, MakesOneProducerForTwoFirstSendsAtOnce) {
  const auto messenger = makeLate();
  std::atomic<bool> begun = false;
  std::future<void> second;
  streams->onStep = [&](const std::string& step) {
    if (step != "createProducer" || begun.exchange(true)) return;
    second = std::async(std::launch::async, [&] { messenger->send(one); });
    EXPECT_EQ(second.wait_for(100ms), std::future_status::timeout) << "there was no producer yet";
  };
  messenger->send(one);
  second.get();
  EXPECT_EQ(streams->sent().size(), 2U);
  EXPECT_EQ(streams->producerConfigurations.size(), 1U) << "it made a second producer";
}

TEST_F(LifecycleTest, CopiesErrorHandlersWhenTheEndsAreMade) {
  const auto messenger = makeLate();
  Lines reported;
  messenger->setConsumerErrorHandler([](const auto&) { ADD_FAILURE() << "set too late"; });
  messenger->setProducerErrorHandler([&](const std::exception& error) { reported.push_back(error.what()); });
  messenger->send(one);
  messenger->setProducerErrorHandler({});
  streams->producer->error(std::runtime_error("lost it"));
  streams->consumer->error(std::runtime_error("torn"));
  EXPECT_EQ(reported, Lines{"lost it"});
  EXPECT_THAT(logged(Severity::error),
              ElementsAre("Error from Producer: lost it", "Error from Consumer: torn"));
}

TEST_F(LifecycleTest, ReportsAFailedSendToAHandlerThatMaySendItself) {
  const kestrel::host::Host host;
  for (const bool buffered : {false, true}) {
    streams = std::make_shared<FakeStreams>();
    const auto messenger = makeLate({{"producerUsesBuffer", buffered}});
    std::atomic<int> sends = 0, reports = 0;
    streams->onSend = [&] {
      if (sends++ < 2) throw std::domain_error("refused");
    };
    messenger->setProducerErrorHandler([&](const std::exception&) {
      messenger->send(one);
      ++reports;
    });
    messenger->send(one);
    EXPECT_TRUE(eventually("both reports and the message of the second",
                           [&] { return reports == 2 && streams->sent().size() == 1; }));
  }
}

TEST_F(LifecycleTest, WaitsAQuarterOfASecondForAHandlerAndNoLonger) {
  const auto untilGivenUp = timeOf([&] {
    const auto messenger = make();
    EXPECT_EQ(deliver(plainMessage), Handling::notTaken);
  });
  EXPECT_GE(untilGivenUp, 250ms);
  EXPECT_THAT(logged(Severity::error), ElementsAre(HasSubstr(std::bad_function_call().what())));
}

TEST_F(LifecycleTest, GivesEarlyMessagesTheirTimeFromWhenTheConsumerHasStarted) {
  std::future<Handling> early;
  streams->onStep = [&](const std::string& step) {
    if (step != "startConsumer") return;
    early = beginDelivery(plainMessage);
    EXPECT_EQ(early.wait_for(100ms), std::future_status::timeout) << "given up too early";
  };
  const auto messenger = make({}, {.handlerGrace = 0ms});
  EXPECT_EQ(early.get(), Handling::notTaken);
}

TEST_F(LifecycleTest, LeavesMessagesThatWaitForAHandlerToTheNextConsumer) {
  auto messenger = make({}, {.handlerGrace = patience});
  auto delivered = beginDelivery(request);
  ASSERT_TRUE(soonLogs("received message on consumer in"));
  messenger.reset();
  EXPECT_EQ(delivered.get(), Handling::notTaken);
  EXPECT_THAT(logged(Severity::error), IsEmpty()) << "it is not lost";
  EXPECT_THAT(streams->sent(), IsEmpty()) << "the next consumer answers";
}

TEST_F(LifecycleTest, WaitsForTheHandlerInFlightWhenItIsDestroyedAndLetsNoneInAfterwards) {
  auto messenger = make({}, {.handlerGrace = patience});
  std::promise<void> release;
  auto delivered = beginDelivery(plainMessage);
  ASSERT_TRUE(soonLogs("received message on consumer in"));
  // In time for a message that is already here.
  messenger->setReceiveHandler([&](const DataStruct&) { release.get_future().wait(); });
  auto destroyed = std::async(std::launch::async, [&] { messenger.reset(); });
  EXPECT_EQ(destroyed.wait_for(50ms), std::future_status::timeout);
  release.set_value();
  destroyed.get();
  EXPECT_EQ(delivered.get(), Handling::done);
  EXPECT_EQ(deliver(plainMessage), Handling::notTaken);
}

TEST_F(LifecycleTest, LetsRequestsWaitWhileTooManyAnswersAreQueued) {
  const kestrel::host::Host host;
  std::counting_semaphore<> leave(0);
  streams->onSend = [&] { (void)leave.try_acquire_for(patience); };
  auto messenger = make({{"producerUsesBuffer", true}}, {.backlogLimit = 1});
  std::atomic<int> served = 0;
  messenger->setRequestHandler([&](const DataStruct& asked) {
    ++served;
    return asked;
  });
  EXPECT_EQ(deliver(request), Handling::done);
  auto waiting = beginDelivery(request);
  ASSERT_TRUE(soonLogs("Requests from stream in wait: "));
  EXPECT_EQ(served, 1);
  leave.release();  // the first answer
  EXPECT_EQ(waiting.get(), Handling::done);
  waiting = beginDelivery(request);
  auto destroyed = std::async(std::launch::async, [&] { messenger.reset(); });
  EXPECT_EQ(waiting.get(), Handling::notTaken);
  EXPECT_EQ(served, 2);
  leave.release(2);
}

TEST_F(LifecycleTest, EndsTheProcessWhenAHandlerDestroysItsMessenger) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto messenger = make();
  messenger->setReceiveHandler([&](const DataStruct&) { messenger.reset(); });
  EXPECT_DEATH(deliver(plainMessage), "messenger.*handler");
}

}  // namespace library_test
