#include "transports/nats/connection/Subscription.hpp"

#include <gmock/gmock.h>

#include "FakeSession.hpp"

namespace kestrel::streams {
namespace {

using testing::ElementsAre;

struct SubscriptionTest : testing::Test {
  /// Begins the session of that number; its messages are named after it.
  std::shared_ptr<FakeFeed> renew(std::uint64_t number, int messages) {
    auto session = std::make_shared<FakeSession>(number);
    subscription.renew(session);
    auto feed = session->feed("s");
    for (int i = 1; feed && i <= messages; ++i) feed->bring(std::to_string(number) + "." + std::to_string(i));
    return feed;
  }
  /// What next() gives, until it has nothing at present.
  std::vector<std::string> take() {
    std::vector<std::string> taken;
    for (;;) {
      natsMsg* raw = nullptr;
      const natsStatus status = subscription.next(&raw, std::chrono::milliseconds(0));
      const NatsMessage message(raw);
      if (status == NATS_OK) taken.emplace_back(natsMsg_GetSubject(raw));
      if (status == NATS_SLOW_CONSUMER) taken.emplace_back("dropped");
      if (status == NATS_TIMEOUT) return taken;
      if (status == NATS_CONNECTION_CLOSED) return taken.emplace_back("end"), taken;
    }
  }

  Subscription subscription{"s", {}};
};

TEST_F(SubscriptionTest, TakesFirstWhatCameOverTheLostSession) {
  EXPECT_THAT(take(), testing::IsEmpty());
  const auto first = renew(1, 2);
  EXPECT_EQ(subscription.waiting(), 2U);
  EXPECT_THAT(take(), ElementsAre("1.1", "1.2"));
  first->bring("1.3");
  const auto second = renew(2, 1);
  EXPECT_EQ(subscription.waiting(), 2U);
  EXPECT_FALSE(first->ended()) << "it has something yet";
  EXPECT_THAT(take(), ElementsAre("1.3", "2.1"));
  (void)renew(3, 0);
  EXPECT_TRUE(second->ended()) << "whoever waits for more of it must go on";
  EXPECT_EQ(renew(2, 0), nullptr) << "that is over";
  EXPECT_EQ(subscription.newlyDropped(), 0U);
}

TEST_F(SubscriptionTest, TellsOnceOfWhatWasDropped) {
  const auto first = renew(1, 1);
  EXPECT_THAT(take(), ElementsAre("1.1"));
  first->drop(3);
  EXPECT_EQ(subscription.newlyDropped(), 3U);
  first->drop(1);
  EXPECT_EQ(subscription.newlyDropped(), 1U);
  first->bring("1.2");
  (void)renew(2, 4);
  (void)renew(3, 1);  // before the second one was begun with
  EXPECT_THAT(take(), ElementsAre("1.2", "dropped", "3.1"));
  EXPECT_EQ(subscription.newlyDropped(), 4U);
  EXPECT_EQ(subscription.newlyDropped(), 0U);
}

TEST_F(SubscriptionTest, GivesTheRestWhenItIsClosedAndNothingWhenItIsEnded) {
  (void)renew(1, 2);
  subscription.close();
  EXPECT_THAT(take(), ElementsAre("1.1", "1.2", "end"));
  (void)renew(2, 1);
  subscription.end();
  EXPECT_THAT(take(), ElementsAre("end"));
  EXPECT_EQ(renew(3, 1), nullptr);
}

}  // namespace
}  // namespace kestrel::streams
