#include <cstdlib>

#include "MessengerTest.hpp"
#include "RequestTable.hpp"
#include "kestrel/interrupt/UserInterruptFacility.hpp"
#include "remote_connectivity/asyncio/util/MessengerException.hpp"
#include "remote_connectivity/asyncio/util/RequestTimeout.hpp"

namespace library_test {

constexpr char timeoutVariable[] = "QX_ASYNCIO_MESSENGER_REQUEST_TIMEOUT";
constexpr MessengerTiming shortTiming{.requestTimeout = 200ms, .waitSlice = 5ms, .handlerGrace = 0ms};

class RequestTest : public MessengerTest {
 protected:
  void respond(const std::string& uuid, double value) {
    deliver(column({chars("requestResponse"), chars(uuid), number(value), text("answer")}), {{"unit", 3L}});
  }
  std::ptrdiff_t strayResponses(const std::string& uuid) const {
    return log.count("No promise found for request " + uuid);
  }
};

TEST_F(RequestTest, GetTheirOwnResponsesWhenTheyArriveInReverse) {
  const auto messenger = make();
  const auto [first, firstId] = messenger->asyncRequest(DataStruct(number(1)));
  const auto [second, secondId] = messenger->asyncRequest(DataStruct(number(2)));
  respond("unknown", 1);
  EXPECT_EQ(strayResponses("unknown"), 1);
  respond(secondId, 20);
  EXPECT_EQ(first.wait_for(0s), std::future_status::timeout);
  EXPECT_EQ(messenger->pendingRequests(), 1U);
  respond(firstId, 10);
  respond(firstId, 11);
  EXPECT_EQ(strayResponses(firstId), 1);
  const DataStruct answer = messenger->getAsyncRequestResult(second, secondId);
  EXPECT_EQ(numberOf(answer.data), 20);
  EXPECT_EQ(answer.id, "answer");
  EXPECT_EQ(answer.attributes, (AttributeMap{{"unit", 3L}}));
  EXPECT_EQ(numberOf(messenger->getAsyncRequestResult(first, firstId).data), 10);
  for (const char* line :
       {"Waiting for response. ID: ", "Response received. ID: ", "=== Got requestResponse ID: "}) {
    EXPECT_GE(log.count(line + firstId), 1) << line;
  }
  EXPECT_EQ(messenger->pendingRequests(), 0U);
}

TEST_F(RequestTest, TimeOutWhenTheTimeHasComeAndNotBefore) {
  const auto messenger = make({}, shortTiming);
  const auto [future, id] = messenger->asyncRequest(DataStruct(number(1)));
  const auto took = timeOf([&, &waited = future, &uuid = id] {
    EXPECT_THAT([&] { (void)messenger->getAsyncRequestResult(waited, uuid); },
                testing::ThrowsMessage<MessengerException>("Timeout waiting for response."));
  });
  EXPECT_GE(took, 200ms);
  EXPECT_LT(took, 10s);
  EXPECT_EQ(messenger->pendingRequests(), 0U);
  EXPECT_EQ(log.count("Response not received within the timeout period. ID: " + id), 1);
  respond(id, 1);
  EXPECT_EQ(strayResponses(id), 1) << "the response came late";
}

TEST_F(RequestTest, TimeOutAfterTwentySecondsWhateverTheEnvironmentSays) {
  setenv(timeoutVariable, "1", 1);
  const auto messenger = make();
  const auto took =
      timeOf([&] { EXPECT_THROW((void)messenger->request(DataStruct(number(1))), MessengerException); });
  unsetenv(timeoutVariable);
  EXPECT_GE(took, 20s);
  EXPECT_LT(took, 22s);
  EXPECT_EQ(log.count("Using request timeout of 20 seconds."), 1);
}

TEST_F(RequestTest, HaveATimeOutInTheEnvironmentForCallersWhoWantOne) {
  const std::string invalid =
      "Invalid value for QX_ASYNCIO_MESSENGER_REQUEST_TIMEOUT_S environment variable: stoul";
  const std::string outOfRange =
      "Out of range value provided for QX_ASYNCIO_MESSENGER_REQUEST_TIMEOUT environment variable: stoul";
  EXPECT_EQ(getRequestTimeout(), 20s) << "unset";
  using Case = std::tuple<const char*, long, Lines>;
  for (const auto& [value, seconds, errors] :
       {Case{"5", 5, {}}, Case{"0", 0, {}}, Case{"7s", 7, {}}, Case{"  +9", 9, {}},
        Case{"soon", 20, {invalid}}, Case{"", 20, {invalid}},
        Case{"123456789012345678901234567890", 20, {outOfRange}}}) {
    setenv(timeoutVariable, value, 1);
    log.clear();
    EXPECT_EQ(getRequestTimeout(), std::chrono::seconds(seconds)) << value;
    EXPECT_EQ(logged(Severity::error), errors) << value;
  }
  unsetenv(timeoutVariable);
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
  kestrel::interrupt::setUserInterruptFacility(std::make_shared<PendingInterrupt>());
  const auto messenger = make({}, shortTiming);
  EXPECT_THROW((void)messenger->request(DataStruct(number(1))), HostInterrupt);
  EXPECT_EQ(messenger->pendingRequests(), 0U);
  std::jthread([&] {
    EXPECT_THROW((void)messenger->request(DataStruct(number(1))), MessengerException);
  }).join();
  kestrel::interrupt::setUserInterruptFacility(nullptr);
}

TEST_F(RequestTest, ThatCouldNotBeSentAreForgottenAfterTheTimeOut) {
  const auto messenger = make({}, shortTiming);
  EXPECT_THROW((void)messenger->asyncRequest(DataStruct(number(1), {}, "\xff")), kestreldata::Exception);
  EXPECT_EQ(messenger->pendingRequests(), 1U) << "forgotten too early";
  EXPECT_THROW((void)messenger->request(DataStruct(number(1))), MessengerException);
  EXPECT_EQ(messenger->pendingRequests(), 1U) << "only the one that was waited for goes";
  const auto next = messenger->asyncRequest(DataStruct(number(1)));
  EXPECT_EQ(messenger->pendingRequests(), 1U) << "the time is over: only the newest is left";
}

TEST_F(RequestTest, OfAHandlerOnItsOwnMessengerAreLoggedAtOnce) {
  const auto messenger = make({}, shortTiming);
  messenger->setReceiveHandler([&](const DataStruct& message) { (void)messenger->request(message); });
  deliver(plainMessage);
  EXPECT_THAT(logged(Severity::error),
              ElementsAre(testing::Not(HasSubstr("Timeout")), HasSubstr("Timeout waiting for response.")));
  log.clear();
  const auto pending = messenger->asyncRequest(DataStruct(number(1)));
  respond(pending.second, 10);
  messenger->setReceiveHandler([&](const DataStruct&) {
    EXPECT_EQ(numberOf(messenger->getAsyncRequestResult(pending.first, pending.second).data), 10);
  });
  EXPECT_EQ(deliver(plainMessage), Handling::done);
  EXPECT_THAT(logged(Severity::error), IsEmpty()) << "there was nothing to wait for";
}

TEST_F(RequestTest, EndAsTheMessengerIsDestroyedEvenInsideAHandler) {
  auto messenger = make();
  const auto future = messenger->asyncRequest(DataStruct(number(1))).first;
  messenger->setReceiveHandler([&, raw = messenger.get()](const DataStruct& message) {
    (void)raw->request(message);
    ADD_FAILURE() << "nobody can have answered";
  });
  const std::jthread delivery([&] { deliver(plainMessage); });
  ASSERT_TRUE(soonLogs("Waiting for response. ID: "));
  EXPECT_LT(timeOf([&] { messenger.reset(); }), 15s) << "the destructor waited for the time-out";
  EXPECT_THAT([&] { (void)future.get(); }, testing::Throws<std::future_error>(testing::Property(
                                               &std::future_error::code, std::future_errc::broken_promise)));
}

TEST(MessengerExceptionDeathTest, HasATextForEachTypeAndEndsTheProcessForAnUnknownOne) {
  EXPECT_STREQ(MessengerException(MessengerExceptionType{0}).what(), "Invalid channel messenger.");
  EXPECT_DEATH((void)getStringForExceptionType(MessengerExceptionType{2}),
               "MessengerError: Item is corrupt\\.");
}

TEST(RequestTable, BreaksAPromiseThatIsMadeDuringDestruction) {
  RequestTable table([] { return std::string("id"); });
  table.breakAll();
  const auto future = table.open({}).first;
  ASSERT_EQ(future.wait_for(0s), std::future_status::ready) << "the wait hangs";
  EXPECT_THROW((void)future.get(), std::future_error);
}

}  // namespace library_test
