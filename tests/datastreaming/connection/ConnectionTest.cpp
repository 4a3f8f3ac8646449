#include <gmock/gmock.h>

#include "../../Eventually.hpp"
#include "FakeSession.hpp"
#include "transports/nats/connection/NatsConnection.hpp"

namespace kestrel::streams {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

/// Writes down what it is told.
struct Watcher final : ConnectionWatcher {
  void disconnected() override { told.note("away"); }
  void reconnected() override { told.note("back"); }
  void closed(const std::string& why) override { told.note(why); }
  Notes told;
};

struct Sink final : ReplySink {
  void replied(std::uint64_t number, natsMsg*) override { got.note(std::to_string(number)); }
  bool beat() override { return wanted; }
  bool idle() override { return true; }
  void abandon(const std::string& why) override { abandoned = why; }
  std::atomic<bool> wanted = true;
  std::string abandoned;
  Notes got;
};

/// The text that it completes with, or why it failed.
std::string outcome(const EchoBook::Expectation& expected) {
  if (expected.confirmed.wait_for(10s) != std::future_status::ready) return "nothing in time";
  try {
    return expected.confirmed.get();
  } catch (const std::exception& error) {
    return error.what();
  }
}

/// A connection whose sessions are made here.
class ConnectionTest : public testing::Test {
 protected:
  ConnectionTest() {
    endpoint.shown = "nats://there";
    endpoint.firstBackoff = 1ms;
  }

  void connect() {
    connection = NatsConnection::connect(
        endpoint, [this](auto&&, const std::shared_ptr<LossListener>& losses, auto&&, auto&&) {
          listener = losses;
          if (refusals-- > 0) throw std::runtime_error("no server");
          auto session = std::make_shared<FakeSession>(made + 1);
          session->refusesSubscriptions = made + 1 == unwilling;
          const std::lock_guard lock(mutex);
          sessions.push_back(session);
          ++made;
          return session;
        });
    connection->watch(watcher);
  }
  std::shared_ptr<FakeSession> session(std::size_t number) {
    const std::lock_guard lock(mutex);
    return sessions.at(number - 1);
  }
  void lose(std::uint64_t number) {
    session(number)->lives = false;
    listener->lost(number);
  }
  [[nodiscard]] testing::AssertionResult uses(std::uint64_t number) {
    return eventually("the session to be used", [&] { return connection->currentSession() == number; });
  }
  std::optional<std::string> post(const std::string& subject, const EchoBook::Expectation& expected) {
    const auto refusal =
        connection->outbox().post({message(subject), 1, expected.number, connection->echoes(), 0});
    EchoBook::ask(connection->echoes(), connection->outbox(), expected.number);
    return refusal;
  }
  /// The server answers at that inbox.
  void answer(std::uint64_t number, const std::string& subject, const char* status = nullptr) {
    session(number)->feed(inbox())->bring(subject, status);
  }
  [[nodiscard]] std::string inbox() { return connection->inbox().subject(); }

  NatsEndpoint endpoint;
  std::shared_ptr<NatsConnection> connection;
  std::shared_ptr<LossListener> listener;
  std::shared_ptr<Watcher> watcher = std::make_shared<Watcher>();
  std::atomic<int> refusals = 0;      // how many sessions more cannot be made
  std::atomic<std::size_t> made = 0;  // how many were
  std::size_t unwilling = 0;          // the number of one that takes no subscription

 private:
  std::mutex mutex;
  std::vector<std::shared_ptr<FakeSession>> sessions;
};

TEST_F(ConnectionTest, SubscribesAgainBeforeWhatWaitsIsSentOverTheNextSession) {
  unwilling = 2;
  connect();
  const auto subscription = connection->subscribe("s", {});
  EXPECT_EQ(session(1)->log(), "subscribe " + inbox() + ", wake, subscribe s");
  refusals = 2;
  lose(1);
  ASSERT_TRUE(uses(3));
  EXPECT_EQ(session(1)->log(), "stop");
  EXPECT_EQ(session(2)->log(), "stop") << "it was of no use";
  EXPECT_EQ(connection->outbox().post({message("m"), 1, 0, nullptr, 0}), std::nullopt);
  EXPECT_EQ(session(3)->log(), "subscribe " + inbox() + ", subscribe s, wake, m, flush");
  ASSERT_TRUE(eventually("the news", [&] { return watcher->told.count() == 2; }));
  EXPECT_EQ(watcher->told.take(), "away, back");
  EXPECT_EQ(connection->standing()->sessions(), 2U);
}

TEST_F(ConnectionTest, IsClosedForGoodAfterAsManyAttemptsAsAreAllowed) {
  endpoint.maxReconnects = 2;
  connect();
  const auto subscription = connection->subscribe("s", {});
  const auto waiting = connection->echoes()->expect("text");
  refusals = 2;
  lose(1);
  ASSERT_TRUE(eventually("the end", [&] { return watcher->told.count() == 2; }));
  const std::string why = "the connection to nats://there is closed for good: no server";
  EXPECT_EQ(watcher->told.take(), "away, " + why);
  EXPECT_TRUE(connection->closed());
  EXPECT_EQ(refusals, 0);
  EXPECT_EQ(post("m", waiting), why);
  EXPECT_EQ(outcome(waiting), why);
  natsMsg* none = nullptr;
  EXPECT_EQ(subscription->next(&none, 0ms), NATS_CONNECTION_CLOSED);
  EXPECT_EQ(connection->subscribe("late", {})->next(&none, 1s), NATS_CONNECTION_CLOSED);
}

TEST_F(ConnectionTest, ConfirmsWhatComesBackFailsWhatWasOnItsWayAndKeepsWhatWaits) {
  connect();
  const auto book = connection->echoes();
  const auto confirmed = book->expect("first"), lost = book->expect("second"), kept = book->expect("third");
  (void)post("a", confirmed);
  (void)post("b", lost);
  (void)session(1)->log();
  session(1)->held = 1 << 20;
  (void)post("c", kept);
  EXPECT_EQ(session(1)->log(), "");
  const auto echo = [&](const auto& of) {  // where the message to ourselves goes
    return inbox().substr(0, inbox().size() - 1) + "1." + std::to_string(of.number);
  };
  answer(1, echo(confirmed));
  EXPECT_EQ(outcome(confirmed), "first");
  EXPECT_FALSE(book->idle());
  lose(1);
  ASSERT_TRUE(uses(2));
  EXPECT_THAT(outcome(lost), HasSubstr("lost before the server confirmed"));
  connection->outbox().pump();
  EXPECT_THAT(session(2)->log(), HasSubstr("c, " + echo(kept)));
  answer(2, echo(kept));
  EXPECT_EQ(outcome(kept), "third");
  EXPECT_TRUE(book->idle());
}

TEST_F(ConnectionTest, GivesEachReplyToItsSinkAndPassesOverWhatOthersSend) {
  connect();
  const auto first = std::make_shared<Sink>(), second = std::make_shared<Sink>();
  const std::string toFirst = connection->inbox().add(first), toSecond = connection->inbox().add(second);
  answer(1, toFirst + "7", "503");
  for (const std::string garbage : {"", "x", "7x", "-7", ".7", "99999999999999999999"}) {
    answer(1, toFirst + garbage);
  }
  answer(1, toFirst.substr(0, toFirst.size() - 2) + "9.7");
  answer(1, toFirst + "7");
  answer(1, toSecond + "8");
  ASSERT_TRUE(eventually("the second answer", [&] { return second->got.count() == 1; }));
  EXPECT_EQ(first->got.take(), "7");
  EXPECT_EQ(second->got.take(), "8");
  first->wanted = false;
  ASSERT_TRUE(eventually("the first to be let go", [&] { return first.use_count() == 1; }));
  connection.reset();
  EXPECT_THAT(second->abandoned, HasSubstr("closed"));
}

}  // namespace
}  // namespace kestrel::streams
