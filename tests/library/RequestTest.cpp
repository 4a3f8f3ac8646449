#include <gtest/gtest.h>

#include <set>

#include "MessengerTest.hpp"
#include "RequestTable.hpp"
#include "kestrel/interrupt/UserInterruptFacility.hpp"
#include "remote_connectivity/asyncio/util/MessengerException.hpp"

namespace library_test {
namespace {

using namespace remote_connectivity::asyncio::util;

constexpr MessengerTiming shortTiming{.requestTimeout = 200ms, .waitSlice = 5ms, .handlerGrace = 0ms};

class RequestTest : public MessengerTest {
 protected:
  void expectBrokenPromise(const std::shared_future<DataStruct>& future) {
    try {
      (void)future.get();
      FAIL() << "the promise was not broken";
    } catch (const std::future_error& error) {
      EXPECT_EQ(error.code(), std::future_errc::broken_promise);
    }
  }
  void expectLogged(const std::string& text) {
    EXPECT_TRUE(log.wrote(messengerChannel, Severity::trace, text));
  }
};

TEST_F(RequestTest, GetTheirOwnResponsesWhenTheyArriveInReverse) {
  const auto messenger = make();
  const auto [first, firstId] = messenger->asyncRequest(DataStruct(number(1)));
  const auto [second, secondId] = messenger->asyncRequest(DataStruct(number(2)));
  ASSERT_NE(firstId, secondId);
  deliver(column({text("requestResponse"), text(secondId), number(20), text("second")}), {{"unit", 3L}});
  EXPECT_EQ(first.wait_for(0s), std::future_status::timeout);
  respond(firstId, 10);
  const DataStruct secondAnswer = messenger->getAsyncRequestResult(second, secondId);
  EXPECT_EQ(numberOf(messenger->getAsyncRequestResult(first, firstId).data), 10);
  EXPECT_EQ(numberOf(messenger->getAsyncRequestResult(first, firstId).data), 10) << "a second reading";
  EXPECT_EQ(numberOf(secondAnswer.data), 20);
  EXPECT_EQ(secondAnswer.id, "second");
  EXPECT_EQ(secondAnswer.attributes, (AttributeMap{{"unit", 3L}}));
  EXPECT_EQ(messenger->pendingRequests(), 0U);
  for (const std::string& id : {firstId, secondId}) {
    expectLogged("Waiting for response. ID: " + id);
    expectLogged("Response received. ID: " + id);
    expectLogged("=== Got requestResponse ID: " + id);
  }
  expectLogged("Using request timeout of 20 seconds.");
}

TEST_F(RequestTest, DropsResponsesThatNobodyWaitsFor) {
  const auto messenger = make();
  const auto [future, id] = messenger->asyncRequest(DataStruct(number(1)));
  respond("unknown", 1);
  EXPECT_EQ(log.count("No promise found for request unknown"), 1U);
  EXPECT_EQ(messenger->pendingRequests(), 1U);
  respond(id, 2);
  respond(id, 3);
  EXPECT_EQ(log.count("No promise found for request " + id), 1U);
  EXPECT_EQ(numberOf(future.get().data), 2);
}

TEST_F(RequestTest, TimeOutWhenTheTimeHasComeAndNotBefore) {
  const auto messenger = make(unlimited(), shortTiming);
  const auto [future, id] = messenger->asyncRequest(DataStruct(number(1)));
  EXPECT_EQ(messenger->pendingRequests(), 1U);
  const auto took = timeOf([&, &waited = future, &uuid = id] {
    try {
      (void)messenger->getAsyncRequestResult(waited, uuid);
      FAIL() << "there was no response";
    } catch (const MessengerException& error) {
      EXPECT_EQ(error.type(), MessengerExceptionType::Timeout);
      EXPECT_STREQ(error.what(), "Timeout waiting for response.");
    }
  });
  EXPECT_GE(took, 200ms);
  EXPECT_LT(took, 10s);
  EXPECT_EQ(messenger->pendingRequests(), 0U);
  expectLogged("Response not received within the timeout period. ID: " + id);
  respond(id, 1);
  EXPECT_EQ(log.count("No promise found for request " + id), 1U) << "the response came late";
}

TEST_F(RequestTest, BreakWhenTheMessengerGoes) {
  auto messenger = make();
  const auto future = messenger->asyncRequest(DataStruct(number(1))).first;
  messenger.reset();
  expectBrokenPromise(future);
}

TEST_F(RequestTest, PassOnWhateverTheFutureHolds) {
  const auto messenger = make();
  std::promise<DataStruct> failed;
  failed.set_exception(std::make_exception_ptr(std::domain_error("stored")));
  EXPECT_THROW((void)messenger->getAsyncRequestResult(failed.get_future().share(), "a"), std::domain_error);
  const auto deferred = std::async(std::launch::deferred, [] { return DataStruct(number(8)); }).share();
  EXPECT_EQ(numberOf(messenger->getAsyncRequestResult(deferred, "b").data), 8);
  try {
    (void)messenger->getAsyncRequestResult({}, "c");
    FAIL() << "an empty future was taken";
  } catch (const std::future_error& error) {
    EXPECT_EQ(error.code(), std::future_errc::no_state);
  }
}

/// Answers requests by itself.
class SelfAnswering : public SendReceiveDataStream {
 public:
  using SendReceiveDataStream::SendReceiveDataStream;
  std::pair<std::shared_future<DataStruct>, std::string> asyncRequest(const DataStruct& message) override {
    std::promise<DataStruct> answer;
    answer.set_value(DataStruct(number(numberOf(message.data) + 1)));
    return {answer.get_future().share(), "own id"};
  }
};

TEST_F(RequestTest, GoThroughAnOverriddenAsyncRequest) {
  SelfAnswering messenger("out", "in", streams);
  EXPECT_EQ(numberOf(messenger.request(DataStruct(number(1))).data), 2);
  expectLogged("Waiting for response. ID: own id");
  EXPECT_TRUE(streams->sent().empty());
}

struct HostInterrupt {};

/// A host whose user has interrupted already.
class PendingInterrupt : public kestrel::interrupt::UserInterruptFacility {
 public:
  bool observedOnThisThread() const noexcept override { return std::this_thread::get_id() == observer; }
  bool pending() const noexcept override { return true; }
  void raise() override { throw HostInterrupt(); }

  std::thread::id observer = std::this_thread::get_id();
};

TEST_F(RequestTest, EndInTheHostsInterruptWhereTheThreadObservesIt) {
  const auto messenger = make();
  kestrel::interrupt::setUserInterruptFacility(std::make_shared<PendingInterrupt>());
  EXPECT_LT(timeOf([&] { EXPECT_THROW((void)messenger->request(DataStruct(number(1))), HostInterrupt); }),
            15s);
  EXPECT_EQ(messenger->pendingRequests(), 0U);
  const auto shortLived = make(unlimited(), shortTiming);
  std::jthread([&] {
    EXPECT_THROW((void)shortLived->request(DataStruct(number(1))), MessengerException);
  }).join();
  kestrel::interrupt::setUserInterruptFacility(nullptr);
}

TEST_F(RequestTest, ThatCouldNotBeSentAreForgottenAfterTheTimeOut) {
  const auto messenger = make(unlimited(), shortTiming);
  EXPECT_THROW((void)messenger->asyncRequest(DataStruct(number(1), {}, "\xff")), kestreldata::Exception);
  EXPECT_EQ(messenger->pendingRequests(), 1U) << "forgotten too early";
  EXPECT_THROW((void)messenger->request(DataStruct(number(1))), MessengerException);
  EXPECT_EQ(messenger->pendingRequests(), 1U) << "only the one that was waited for goes";
  const auto next = messenger->asyncRequest(DataStruct(number(1)));
  EXPECT_EQ(messenger->pendingRequests(), 1U) << "the time is over: only the newest is left";
}

TEST_F(RequestTest, OfAHandlerOnItsOwnMessengerAreLoggedAtOnce) {
  const auto messenger = make(unlimited(), shortTiming);
  std::size_t errorsBefore = 99;
  messenger->setReceiveHandler([&](const DataStruct& message) {
    const auto [future, id] = messenger->asyncRequest(message);
    errorsBefore = log.texts(messengerChannel, Severity::error).size();
    (void)messenger->getAsyncRequestResult(future, id);
  });
  deliver(row({text("send"), number(1), text("")}));
  const auto errors = log.texts(messengerChannel, Severity::error);
  ASSERT_GE(errors.size(), 2U) << "the warning, and the time-out that the handler let out";
  EXPECT_LE(errorsBefore, 1U);
  EXPECT_TRUE(log.wroteError("Timeout waiting for response."));
  EXPECT_EQ(errors.front().find("Timeout"), std::string::npos) << errors.front();
}

TEST_F(RequestTest, OfAHandlerEndAsItsMessengerIsDestroyed) {
  auto messenger = make();
  messenger->setReceiveHandler([&, raw = messenger.get()](const DataStruct& message) {
    (void)raw->request(message);
    ADD_FAILURE() << "nobody can have answered";
  });
  const std::jthread delivery([&] { deliver(row({text("send"), number(1), text("")})); });
  ASSERT_TRUE(log.soonWrites("Waiting for response. ID: "));
  EXPECT_LT(timeOf([&] { messenger.reset(); }), 15s) << "the destructor waited for the time-out";
}

std::string countedId() {
  static int count = 0;
  return std::to_string(++count);
}

TEST(RequestTable, BreaksPresentAndFuturePromises) {
  RequestTable table(countedId);
  const auto before = table.open({}).first;
  table.breakAll();
  const auto after = table.open({}).first;
  EXPECT_THROW((void)before.get(), std::future_error);
  ASSERT_EQ(after.wait_for(0s), std::future_status::ready) << "a wait that begins during destruction hangs";
  EXPECT_THROW((void)after.get(), std::future_error);
}

}  // namespace
}  // namespace library_test
