#include "transports/outgoing/Outbox.hpp"

#include <gmock/gmock.h>

#include <thread>

#include "FakeSession.hpp"

namespace kestrel::streams {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;

struct FailedPosts final : Poster {
  void postsFailed(const std::vector<std::uint64_t>& tags, const std::string& why) override {
    failed.emplace_back(tags, why);
  }
  std::vector<std::pair<std::vector<std::uint64_t>, std::string>> failed;
};

struct OutboxTest : testing::Test {
  static constexpr int full = 64 << 10;  // the socket has that much yet to take

  static TimePoint now() { return time; }
  std::optional<std::string> post(const std::string& subject, std::uint64_t cost = 1,
                                  std::uint64_t onlySession = 0) {
    return outbox.post({message(subject), cost, ++tag, poster, onlySession});
  }
  std::shared_ptr<FakeSession> open(std::uint64_t number) {
    auto session = std::make_shared<FakeSession>(number);
    outbox.open(session);
    EXPECT_EQ(session->log(), "wake");  // for what waits
    return session;
  }
  /// What is done with the session for posts that are named by one letter each.
  std::string doneFor(const std::string& posts, FakeSession& session) {
    for (const char subject : posts) EXPECT_EQ(post({subject}), std::nullopt);
    return session.log();
  }

  static inline TimePoint time;
  std::uint64_t tag = 0;
  std::shared_ptr<FailedPosts> poster = std::make_shared<FailedPosts>();
  Outbox outbox{1000, &now};
};

TEST_F(OutboxTest, WritesAtOnceWhatTheSocketTakesAndTheRestInTheOrderOfPosting) {
  const auto session = open(1);
  EXPECT_EQ(doneFor("a", *session), "a, flush");
  EXPECT_TRUE(outbox.empty());
  session->held = full;
  EXPECT_EQ(doneFor("bc", *session), "");
  EXPECT_FALSE(outbox.empty());
  session->held = 0;
  EXPECT_EQ(doneFor("d", *session), "") << "the loop has not noticed yet";
  outbox.pump();
  EXPECT_EQ(session->log(), "b, c, d, flush");
  session->socketTakes = false;
  EXPECT_EQ(doneFor("e", *session), "e, flush, wake") << "the loop must wait for the socket";
  EXPECT_FALSE(outbox.empty());
}

TEST_F(OutboxTest, WhatOthersPostMeanwhileGoesOutWithTheSameWriteButNobodyIsKeptForEver) {
  const auto session = open(1);
  session->meanwhile = [&](const std::string& subject) {
    if (subject != "b") (void)post(subject == "a" ? "b" : subject);
  };
  EXPECT_EQ(doneFor("a", *session), "a, b, flush");
  session->messageBytes = full;
  const auto many = doneFor("m", *session);
  EXPECT_EQ(std::ranges::count(many, 'm'), 16);
  EXPECT_TRUE(many.ends_with("wake")) << "the loop goes on";
}

TEST_F(OutboxTest, LeavesAllWritingToTheLoopWhereOnlyThatMayWrite) {
  const auto session = open(1);
  session->onlyLoopWrites = true;
  EXPECT_EQ(doneFor("a", *session), "wake");
  outbox.expectMore();
  outbox.flush();
  EXPECT_EQ(session->log(), "");
  outbox.pump();
  EXPECT_EQ(session->log(), "a, flush");
}

TEST_F(OutboxTest, HoldsBackWhileMoreIsExpectedUntilEnoughIsThereOrTimeIsUp) {
  const auto session = open(1);
  outbox.expectMore();
  EXPECT_EQ(doneFor("a", *session), "a, wake later");
  time += 99us;
  EXPECT_EQ(doneFor("b", *session), "b, wake later");
  outbox.flush();
  EXPECT_EQ(session->log(), "flush");
  outbox.flush();
  EXPECT_EQ(doneFor("c", *session), "c, flush") << "nothing is expected any more";
  outbox.expectMore();
  session->messageBytes = full / 2;
  EXPECT_EQ(doneFor("d", *session), "d, flush") << "much is worth a write of its own";
  time += 100us;
  session->messageBytes = 1;
  EXPECT_EQ(doneFor("e", *session), "e, flush") << "whoever expected more is late";
}

TEST_F(OutboxTest, LeavesWritingToTheLoopWhileMessagesFollowEachOtherFasterThanItWakesUp) {
  const auto session = open(1);
  const auto lastOf = [&](int posts, std::chrono::microseconds gap) {
    std::string last;
    for (int i = 0; i < posts; ++i, time += gap) last = doneFor("m", *session);
    return last;
  };
  EXPECT_EQ(lastOf(3, 1us), "m, flush") << "three may be all";
  EXPECT_EQ(lastOf(50, 1us), "m, wake");
  EXPECT_EQ(lastOf(1, 100us), "m, wake");
  EXPECT_EQ(lastOf(1, 1us), "m, flush") << "after a pause";
  EXPECT_EQ(lastOf(50, 25us), "m, flush");
}

TEST_F(OutboxTest, RefusesWhatFindsNoRoomAndGivesRoomBackWithEachMessage) {
  outbox.suspend("no server");
  for (std::uint64_t number = 1; number < 6; number += 2) {
    EXPECT_EQ(post("a", 600), std::nullopt);
    EXPECT_EQ(post("b", 400), std::nullopt);
    EXPECT_THAT(post("c", 1), Optional(AllOf(HasSubstr("1 bytes"), HasSubstr("1000 are taken; no server"))));
    open(number)->answer = {Written::Kind::lost};
    outbox.pump();
    EXPECT_NE(post("c", 1), std::nullopt) << "what was put back takes its room again";
    outbox.suspend("lost");
    (void)open(number + 1);
    outbox.pump();
    EXPECT_TRUE(outbox.empty());
    outbox.suspend("no server");
  }
}

TEST_F(OutboxTest, WhatTheLostSessionDidNotTakeGoesFirstOverTheNext) {
  auto session = open(1);
  session->answer = {Written::Kind::lost};
  session->meanwhile = [&](const std::string& subject) {
    if (subject == "a") (void)post("b");
  };
  EXPECT_EQ(post("a"), std::nullopt);
  EXPECT_EQ(post("only there", 1, 1), std::nullopt);
  outbox.suspend("lost");
  EXPECT_EQ(session->log(), "flush");
  EXPECT_THAT(post("too late", 1, 1), Optional(std::string("the connection was lost")));
  (void)post("c");
  session = open(2);
  outbox.pump();
  EXPECT_EQ(session->log(), "a, b, c, flush");
  EXPECT_THAT(poster->failed, IsEmpty());
}

TEST_F(OutboxTest, ASessionIsNotUsedAfterItWasLeft) {
  const auto session = open(1);
  std::atomic<bool> left = false;
  std::jthread leaving;
  session->meanwhile = [&](auto&&) {
    leaving = std::jthread([&] {
      outbox.suspend("lost");
      left = true;
    });
    while (post("b", 0, 1) == std::nullopt) time += 1ms;  // until it has begun
    std::this_thread::sleep_for(10ms);
    EXPECT_FALSE(left) << "it is used just now";
  };
  (void)post("a");
  leaving.join();
  EXPECT_EQ(session->log(), "a, flush");
}

TEST_F(OutboxTest, WhatTheClientRefusesFailsAloneAndWhatWaitsAtTheEndFailsTogether) {
  const auto session = open(1);
  session->answer = {Written::Kind::refused, "the far end has no use for it"};
  EXPECT_THAT(post("a"), Optional(HasSubstr("no use for it")));
  EXPECT_THAT(poster->failed, IsEmpty()) << "its sender knows";
  session->held = full;
  (void)doneFor("bc", *session);
  session->held = 0;
  session->answer = {Written::Kind::refused, "the far end has no use for it"};
  outbox.pump();
  EXPECT_EQ(session->log(), "c, flush");
  EXPECT_THAT(poster->failed, ElementsAre(testing::Pair(ElementsAre(2), HasSubstr("no use"))));
  poster->failed.clear();
  session->held = full;
  EXPECT_EQ(doneFor("de", *session), "");
  outbox.close("the end");
  EXPECT_THAT(poster->failed, ElementsAre(testing::Pair(ElementsAre(4, 5), "the end")));
  EXPECT_THAT(post("f"), Optional(std::string("the end")));
  EXPECT_TRUE(outbox.empty());
}

}  // namespace
}  // namespace kestrel::streams
