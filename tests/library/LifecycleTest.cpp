#include <gtest/gtest.h>

#include <atomic>

#include "MessengerTest.hpp"
#include "kestrel/host/Host.hpp"

namespace library_test {
namespace {

class LifecycleTest : public MessengerTest {
 protected:
  /// Lets one step of opening fail with that text.
  void failAt(const std::string& failing) {
    streams->onStep = [failing](const std::string& step) {
      if (step == failing) throw std::domain_error("fault at " + step);
    };
  }
  void failNowhere() {
    streams->onStep = [](const std::string&) {};
  }

  Array message() const { return row({text("send"), number(1), text("")}); }
};

TEST_F(LifecycleTest, DropsMessagesWithoutASendStreamUntilItIsNamed) {
  const auto messenger = make(unlimited(), {}, "");
  messenger->send(DataStruct(number(1)));
  EXPECT_TRUE(streams->sent().empty());
  EXPECT_TRUE(log.wrote(messengerChannel, Severity::trace,
                        "SendReceiveDataStream::privateSend No producer, no send stream ID."));
  EXPECT_EQ(messenger->getSendStreamId(), "");
  EXPECT_EQ(messenger->getReceiveStreamId(), "in");
  messenger->setSendStreamId("late");
  EXPECT_EQ(messenger->getSendStreamId(), "") << "there is no stream yet";
  messenger->send(DataStruct(number(2)));
  EXPECT_TRUE(
      log.wrote(messengerChannel, Severity::setup, "SendReceiveDataStream::privateSend late producer init"));
  EXPECT_EQ(messenger->getSendStreamId(), "late");
  messenger->setSendStreamId("later");
  messenger->send(DataStruct(number(3)));
  const auto sent = streams->sent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[1].streamId, "late") << "the producer was made anew";
}

class FailingStep : public LifecycleTest, public testing::WithParamInterface<const char*> {};

TEST_P(FailingStep, FailsTheConstruction) {
  failAt(GetParam());
  EXPECT_THROW(make(), std::domain_error);
  EXPECT_TRUE(log.wrote(messengerChannel, Severity::setup,
                        std::string("create consumer/producer failed: fault at ") + GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Steps, FailingStep,
                         testing::Values("getStream", "createProducer", "startProducer", "createConsumer",
                                         "startConsumer"));

class FailingLateStep : public LifecycleTest, public testing::WithParamInterface<const char*> {};

TEST_P(FailingLateStep, LeavesNothingHalfMadeAndIsTriedAgain) {
  const auto messenger = make(unlimited(), {}, "");
  messenger->setSendStreamId("late");
  failAt(GetParam());
  for (int i = 0; i < 2; ++i) {
    EXPECT_THROW(messenger->send(DataStruct(number(1))), std::domain_error);
    EXPECT_EQ(messenger->getSendStreamId(), "");
  }
  EXPECT_THROW((void)messenger->asyncRequest(DataStruct(number(1))), std::domain_error);
  failNowhere();
  messenger->send(DataStruct(number(2)));
  ASSERT_EQ(streams->sent().size(), 1U);
  EXPECT_EQ(messenger->getSendStreamId(), "late");
}

INSTANTIATE_TEST_SUITE_P(Steps, FailingLateStep,
                         testing::Values("getStream", "createProducer", "startProducer"));

TEST_F(LifecycleTest, SendsEveryMessageWhenSeveralThreadsSendFirst) {
  for (int round = 0; round < 20; ++round) {
    const auto messenger = make(unlimited(), {}, "");
    messenger->setSendStreamId("late " + std::to_string(round));
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        messenger->setSendStreamId(messenger->getSendStreamId() + "late");
        messenger->send(DataStruct(number(1)));
      });
    }
  }
  EXPECT_EQ(streams->sent().size(), 80U);
}

TEST_F(LifecycleTest, SaysClearlyThatThereIsNoService) {
  try {
    const SendReceiveDataStream messenger("out", "in", nullptr, {});
    FAIL() << "made over nothing";
  } catch (const std::runtime_error& error) {
    EXPECT_NE(std::string(error.what()).find("service"), std::string::npos) << error.what();
  }
}

TEST_F(LifecycleTest, CopiesErrorHandlersWhenTheEndsAreMade) {
  const auto messenger = make(unlimited(), {}, "");
  std::vector<std::string> reported;
  messenger->setConsumerErrorHandler([](const std::exception&) { ADD_FAILURE() << "set too late"; });
  messenger->setProducerErrorHandler([&](const std::exception& error) { reported.push_back(error.what()); });
  messenger->setSendStreamId("late");
  messenger->send(DataStruct(number(1)));
  messenger->setProducerErrorHandler([](const std::exception&) { ADD_FAILURE() << "set too late"; });
  streams->producerEnds.at(0)->fail("lost it");
  streams->consumerEnd("in")->fail("torn");
  EXPECT_EQ(reported, std::vector<std::string>{"lost it"});
  EXPECT_TRUE(log.wrote(messengerChannel, Severity::error, "Error from Producer: lost it"));
  EXPECT_TRUE(log.wrote(messengerChannel, Severity::error, "Error from Consumer: torn"));
}

class FailingSend : public LifecycleTest, public testing::WithParamInterface<bool> {};

TEST_P(FailingSend, ReachesAHandlerThatMaySendItself) {
  const kestrel::host::Host host;
  auto messenger = make(unlimited({{"producerUsesBuffer", GetParam()}}), {}, "");
  std::atomic<int> sends = 0;
  std::atomic<int> reports = 0;
  streams->onSend = [&](const SentMessage&) {
    if (sends++ < 2) throw std::domain_error("refused");
  };
  messenger->setProducerErrorHandler([&](const std::exception& error) {
    EXPECT_STREQ(error.what(), "refused");
    messenger->send(DataStruct(number(2)));
    ++reports;
  });
  messenger->setSendStreamId("late");
  messenger->send(DataStruct(number(1)));
  EXPECT_TRUE(eventually("the message of the second report", [&] { return streams->sent().size() == 1; }));
  EXPECT_TRUE(eventually("both reports", [&] { return reports == 2; }));
  EXPECT_EQ(log.count("Error from Producer: refused"), 2U);
  EXPECT_LT(timeOf([&] { messenger.reset(); }), 15s);
}

INSTANTIATE_TEST_SUITE_P(Buffered, FailingSend, testing::Bool());

TEST_F(LifecycleTest, ReplacesHandlersWhileMessagesArrive) {
  const auto messenger = make();
  std::atomic<int> handled = 0;
  const auto count = [&](const DataStruct&) { ++handled; };
  messenger->setReceiveHandler(count);
  std::atomic<bool> done = false;
  std::jthread setter([&] {
    while (!done) {
      messenger->setReceiveHandler(count);
      messenger->setRequestHandler([](const DataStruct& request) { return request; });
      messenger->setConsumerErrorHandler([](const std::exception&) {});
    }
  });
  for (int i = 0; i < 500; ++i) deliver(message());
  done = true;
  setter.join();
  EXPECT_EQ(handled, 500);
}

TEST_F(LifecycleTest, KeepsEarlyMessagesForAHandlerThatIsSetAfterwards) {
  const auto messenger = make(unlimited(), {.handlerGrace = patience});
  std::atomic<int> handled = 0;
  std::jthread delivery([&] {
    for (int i = 0; i < 3; ++i) deliver(message());
  });
  ASSERT_TRUE(log.soonWrites("received message on consumer in"));
  messenger->setReceiveHandler([&](const DataStruct&) { ++handled; });
  EXPECT_TRUE(eventually("the three early messages", [&] { return handled == 3; }));
  EXPECT_EQ(log.texts(messengerChannel, Severity::error), std::vector<std::string>{});
}

TEST_F(LifecycleTest, WaitsAQuarterOfASecondForAHandlerAndNoLonger) {
  const auto made = std::chrono::steady_clock::now();
  const auto messenger = make();
  const auto started = std::chrono::steady_clock::now();
  deliver(message());
  const auto gaveUp = std::chrono::steady_clock::now();
  EXPECT_GE(gaveUp - made, 250ms);
  EXPECT_LT(gaveUp - started, 10s);
  EXPECT_TRUE(log.wroteError(std::bad_function_call().what()));
  const auto later = timeOf([&] { deliver(row({chars("request"), chars("u"), number(1), text("")})); });
  EXPECT_LT(later, 200ms) << "the grace is over";
  EXPECT_EQ(streams->sent().size(), 1U);
}

TEST_F(LifecycleTest, IsDestroyedWhileADeliveryWaitsForAHandler) {
  auto messenger = make(unlimited(), {.handlerGrace = patience});
  const std::jthread delivery([&] { deliver(message()); });
  ASSERT_TRUE(log.soonWrites("received message on consumer in"));
  EXPECT_LT(timeOf([&] { messenger.reset(); }), patience / 2);
}

TEST_F(LifecycleTest, WaitsForTheHandlerInFlightWhenItIsDestroyed) {
  auto messenger = make();
  std::promise<void> entered;
  std::promise<void> release;
  std::atomic<bool> left = false;
  messenger->setReceiveHandler([&](const DataStruct&) {
    entered.set_value();
    release.get_future().wait();
    left = true;
  });
  const std::jthread delivery([&] { deliver(message()); });
  ASSERT_TRUE(becomesReady(entered.get_future(), "the handler"));
  auto destroyed = std::async(std::launch::async, [&] { messenger.reset(); });
  EXPECT_EQ(destroyed.wait_for(50ms), std::future_status::timeout);
  release.set_value();
  ASSERT_TRUE(becomesReady(destroyed, "the destructor"));
  EXPECT_TRUE(left);
}

TEST(LifecycleDeathTest, EndsTheProcessWhenAHandlerDestroysItsMessenger) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        const auto streams = std::make_shared<FakeStreams>();
        auto messenger = std::make_unique<SendReceiveDataStream>("out", "in", streams, Options{});
        messenger->setReceiveHandler([&](const DataStruct&) { messenger.reset(); });
        streams->deliver("in", encoded(row({text("send"), number(1), text("")})));
      },
      "messenger.*handler");
}

}  // namespace
}  // namespace library_test
