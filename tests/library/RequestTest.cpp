#include <cstdlib>

#include "MessengerTest.hpp"
#include "kestrel/interrupt/UserInterruptFacility.hpp"
#include "messenger/RequestTable.hpp"
#include "remote_connectivity/asyncio/util/MessengerException.hpp"
#include "remote_connectivity/asyncio/util/RequestTimeout.hpp"

namespace library_test {

constexpr MessengerTiming shortTiming{.requestTimeout = 200ms, .waitSlice = 5ms, .handlerGrace = 0ms};

using RequestTest = MessengerTest;

TEST_F(RequestTest, TimeOutWhenTheTimeHasComeAndNotBefore) {
  const auto messenger = make({}, shortTiming);
  const auto [future, id] = messenger->asyncRequest(DataStruct(number(1)));
  const auto took = timeOf([&, &waited = future, &uuid = id] {
    EXPECT_THAT([&] { (void)messenger->getAsyncRequestResult(waited, uuid); },
                testing::ThrowsMessage<MessengerException>("Timeout waiting for response."));
  });
  EXPECT_GE(took, 200ms);
  EXPECT_EQ(messenger->pendingRequests(), 0U);
  EXPECT_EQ(deliver(column({chars("requestResponse"), chars(id), number(1), text("late")})), Handling::done);
  EXPECT_TRUE(hasLogged("No promise found for request " + id));
}

TEST_F(RequestTest, HaveATimeOutInTheEnvironmentForCallersWhoWantOne) {
  using Case = std::pair<const char*, std::chrono::seconds>;
  for (const auto& [value, timeout] :
       {Case{"7s", 7s}, Case{"soon", 20s}, Case{"99999999999999999999", 20s}}) {
    setenv("QX_ASYNCIO_MESSENGER_REQUEST_TIMEOUT", value, 1);
    EXPECT_EQ(getRequestTimeout(), timeout) << value;
  }
  EXPECT_THAT(
      logged(Severity::error),
      ElementsAre(HasSubstr("Invalid value for QX_ASYNCIO_MESSENGER_REQUEST_TIMEOUT_S "),
                  HasSubstr("Out of range value provided for QX_ASYNCIO_MESSENGER_REQUEST_TIMEOUT ")));
  unsetenv("QX_ASYNCIO_MESSENGER_REQUEST_TIMEOUT");
}

struct HostInterrupt {};

/// A host whose user has interrupted already.
class PendingInterrupt : public kestrel::interrupt::UserInterruptFacility {
 public:
  bool observedOnThisThread() const noexcept override { return true; }
  bool pending() const noexcept override { return true; }
  void raise() override { throw HostInterrupt(); }
};

TEST_F(RequestTest, EndInTheHostsInterrupt) {
  kestrel::interrupt::setUserInterruptFacility(std::make_shared<PendingInterrupt>());
  const auto messenger = make({}, shortTiming);
  EXPECT_THROW((void)messenger->request(DataStruct(number(1))), HostInterrupt);
  EXPECT_EQ(messenger->pendingRequests(), 0U);
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
  messenger.reset();
  EXPECT_FALSE(hasLogged("Response not received")) << "the destructor waited for the time-out";
  EXPECT_THROW((void)future.get(), std::future_error) << "its promise is broken";
}

TEST(RequestTable, BreaksAPromiseThatIsMadeDuringDestruction) {
  RequestTable table([] { return std::string("id"); });
  table.breakAll();
  const auto future = table.open({}).first;
  ASSERT_EQ(future.wait_for(0s), std::future_status::ready) << "the wait hangs";
  EXPECT_THROW((void)future.get(), std::future_error);
}

}  // namespace library_test
