#include "remote_connectivity/asyncio/util/SendDataHelper.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <utility>

#include "LogCapture.hpp"

namespace remote_connectivity::asyncio::util {

/// Reaches the constructor that takes a clock, and the stop flag, which nothing else shows.
class SendDataHelperAccess {
 public:
  static std::unique_ptr<SendDataHelper> make(const SendFunction& send,
                                              std::function<std::chrono::system_clock::time_point()> now,
                                              std::function<void(std::chrono::nanoseconds)> sleep) {
    return std::unique_ptr<SendDataHelper>(
        new SendDataHelper(send, SendDataHelper::Clock{std::move(now), std::move(sleep)}));
  }
  static bool stopped(const SendDataHelper& helper) { return helper._stopped; }
};

}  // namespace remote_connectivity::asyncio::util

namespace library_test {
namespace {

using namespace remote_connectivity::asyncio::util;
using std::chrono::nanoseconds;

const std::string channel = "asyncio::util::SendDataHelper";
const std::string tag = "SendDataHelper::sendWithLimit: ";
const std::string mark = "COMPRESSIONTYPE";
const std::string more = "UNCOMPRESSEDSIZE";

/// A helper whose clock moves only when the test says so, and when the helper sleeps.
class SendDataHelperTest : public testing::Test {
 protected:
  struct Sent {
    std::string bytes;
    AttributeMap attributes;
    bool operator==(const Sent&) const = default;
  };

  std::shared_future<std::string> send(const std::string& payload, std::size_t rate, std::size_t limit = 100,
                                       AttributeMap attributes = {}) {
    return helper->send({payload.begin(), payload.end()}, std::move(attributes), limit, rate);
  }

  /// Calls stop() on another thread and waits until it has taken effect.
  void beginStop() {
    stopping = std::async(std::launch::async, [this] { helper->stop(); });
    ASSERT_TRUE(eventually("the stop flag", [&] { return SendDataHelperAccess::stopped(*helper); }));
  }

  LogCapture log;
  std::chrono::system_clock::time_point now{1000s};
  std::vector<nanoseconds> sleeps;
  std::function<void()> onNextNow = [] {};
  std::function<void()> duringSleep = [] {};
  std::function<void()> duringSend = [] {};
  std::vector<Sent> sent;
  std::future<void> stopping;
  std::unique_ptr<SendDataHelper> helper = SendDataHelperAccess::make(
      [this](const std::uint8_t* data, std::uint64_t size, const AttributeMap& attributes) {
        duringSend();
        sent.push_back({std::string(data, data + size), attributes});
        std::promise<std::string> done;
        done.set_value("message " + std::to_string(sent.size()));
        return done.get_future().share();
      },
      [this] {
        std::exchange(onNextNow, [] {})();
        return now;
      },
      [this](nanoseconds wait) {
        sleeps.push_back(wait);
        duringSleep();
        now += wait;
      });
};

struct ChunkCase {
  const char* name;
  std::string payload;
  std::vector<std::pair<std::string, std::optional<long>>> chunks;  // bytes, and what follows if it is one
};

class Chunks : public SendDataHelperTest, public testing::WithParamInterface<ChunkCase> {};

TEST_P(Chunks, AreCutAtTheLimitAndMarked) {
  const AttributeMap users{{"user", 5L}, {mark, 3L}, {more, std::string("mine")}};
  const auto result = send(GetParam().payload, 50, 4, users);
  std::vector<Sent> expected;
  for (const auto& [bytes, next] : GetParam().chunks) {
    expected.push_back({bytes, users});
    if (next) expected.back().attributes = {{"user", 5L}, {mark, std::string("chunk")}, {more, *next}};
  }
  EXPECT_EQ(sent, expected);
  EXPECT_EQ(result.get(), "message " + std::to_string(expected.size()));
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, Chunks,
    testing::Values(ChunkCase{"none", "", {{"", {}}}}, ChunkCase{"oneLess", "abc", {{"abc", {}}}},
                    ChunkCase{"limit", "abcd", {{"abcd", 0}}},
                    ChunkCase{"oneMore", "abcde", {{"abcd", 4}, {"e", 0}}},
                    ChunkCase{"twice", "abcdefgh", {{"abcd", 4}, {"efgh", 0}}},
                    ChunkCase{"twoAndAHalf", "abcdefghij", {{"abcd", 4}, {"efgh", 4}, {"ij", 0}}}),
    [](const auto& info) { return info.param.name; });

TEST_F(SendDataHelperTest, TellsOfEachChunk) {
  send("abcdef", 50, 4);
  EXPECT_EQ(log.texts(channel, Severity::trace),
            (std::vector<std::string>{"SendDataHelper::splitAndSend:  chunkSize: 4, offset: 0",
                                      "SendDataHelper::splitAndSend:  chunkSize: 2, offset: 4"}));
}

TEST_F(SendDataHelperTest, GivesAFutureWithoutAStateForAnEmptySplit) {
  AttributeMap attributes;
  EXPECT_FALSE(helper->splitAndSend({}, std::move(attributes), 0, 50).valid());
  EXPECT_TRUE(sent.empty());
}

TEST_F(SendDataHelperTest, SleepsTo1200MillisecondsWhenTheRateIsUsedUp) {
  for (int i = 0; i < 2; ++i) send("x", 2);
  EXPECT_TRUE(sleeps.empty());
  now += 400ms;
  log.clear();
  for (int i = 0; i < 2; ++i) send("x", 2);
  EXPECT_EQ(sleeps, std::vector<nanoseconds>{800ms}) << "the message that slept counts in the new period";
  EXPECT_EQ(
      log.texts(channel, Severity::setup),
      (std::vector<std::string>{
          tag + " Reached limit. elapsed: 0.400000, msgCounter: 2. Waiting for 0.800000",
          tag + " Resetting msgCounter and startTime", tag + " msgCounter: 1", tag + " msgCounter: 2"}));
  send("x", 2);
  EXPECT_EQ(sleeps, (std::vector<nanoseconds>{800ms, 1200ms}));
  EXPECT_EQ(sent.size(), 5U);
}

TEST_F(SendDataHelperTest, BeginsANewPeriodAfterAWholeSecondOnly) {
  send("x", 1);
  now += 999'999'999ns;
  send("x", 1);
  EXPECT_EQ(sleeps, std::vector<nanoseconds>{200'000'001ns});
  log.clear();
  now += 1s;
  send("x", 1);
  EXPECT_EQ(sleeps.size(), 1U);
  EXPECT_EQ(
      log.texts(channel, Severity::setup),
      (std::vector<std::string>{
          tag + " elapsed: 1.000000, msgCounter: 1. Limit wasn't reached for 1sec. Resetting msgCounter "
                "and startTime",
          tag + " msgCounter: 1"}));
}

TEST_F(SendDataHelperTest, SleepsBeforeEveryMessageAtARateOfZero) {
  now += 100ms;
  send("x", 0);
  send("x", 0);
  EXPECT_EQ(sleeps, (std::vector<nanoseconds>{1100ms, 1200ms}));
  now += 2s;
  log.clear();
  send("x", 0);
  EXPECT_EQ(sleeps.size(), 2U) << "a period that is over needs no sleep";
  EXPECT_EQ(log.count("Resetting msgCounter and startTime"), 2U);
  EXPECT_EQ(sent.size(), 3U);
}

class SteppedClock : public SendDataHelperTest, public testing::WithParamInterface<std::chrono::seconds> {};

TEST_P(SteppedClock, NeverMakesTheWaitLongOrNegative) {
  send("x", 1);
  now += GetParam();
  for (int i = 0; i < 3; ++i) send("x", 1);
  EXPECT_EQ(sent.size(), 4U);
  for (const nanoseconds wait : sleeps) {
    EXPECT_GE(wait, 0ns);
    EXPECT_LE(wait, 1200ms);
  }
  EXPECT_GE(sleeps.size(), 2U) << "the rate is not held any more";
}

INSTANTIATE_TEST_SUITE_P(Steps, SteppedClock, testing::Values(-1s, -3600s, -100'000'000s, 3600s));

TEST_F(SendDataHelperTest, DoesNotCountAMessageWhoseSendingFailed) {
  duringSend = [] { throw std::runtime_error("refused"); };
  EXPECT_THROW(send("x", 1), std::runtime_error);
  duringSend = [] {};
  send("x", 1);
  EXPECT_TRUE(sleeps.empty());
  EXPECT_EQ(log.count(tag + " msgCounter: 1"), 1U);
}

TEST_F(SendDataHelperTest, AnswersWithTheEmptyTextOnceStopped) {
  helper->stop();
  EXPECT_EQ(send("x", 50).get(), "");
  EXPECT_EQ(send("abcdefgh", 50, 4).get(), "");
  EXPECT_TRUE(sent.empty());
  EXPECT_TRUE(log.wrote(channel, Severity::setup, tag + " SendDataHelper stopped."));
  EXPECT_GE(log.count("void remote_connectivity::asyncio::util::SendDataHelper::stop()"), 2U);
}

TEST_F(SendDataHelperTest, StillSendsTheMessageThatSleepsWhenStopComes) {
  duringSleep = [this] {
    beginStop();
    EXPECT_EQ(stopping.wait_for(50ms), std::future_status::timeout) << "stop() must wait for the sleeper";
  };
  const auto result = send("abcdefghij", 1, 4);
  EXPECT_TRUE(becomesReady(stopping, "stop()"));
  ASSERT_EQ(sent.size(), 2U) << "the first chunk, and the second, which slept";
  EXPECT_EQ(sent[1].bytes, "efgh");
  EXPECT_EQ(result.get(), "");
}

TEST_F(SendDataHelperTest, DoesNotBeginToWaitOnceStopped) {
  send("x", 1);
  onNextNow = [this] { beginStop(); };
  EXPECT_EQ(send("x", 1).get(), "");
  EXPECT_TRUE(becomesReady(stopping, "stop() after an exit without a notification"));
  EXPECT_TRUE(sleeps.empty());
  EXPECT_EQ(sent.size(), 1U);
  EXPECT_TRUE(log.wrote(channel, Severity::setup, tag + " SendDataHelper stopped during wait."));
}

TEST(SendDataHelper, SendsOneAtATimeWhenSeveralThreadsCall) {
  std::atomic<int> inside = 0;
  std::atomic<int> overlaps = 0;
  std::vector<std::string> sent;  // unguarded on purpose: the helper serialises
  SendDataHelper helper([&](const std::uint8_t* data, std::uint64_t size, const AttributeMap&) {
    overlaps += inside++ == 0 ? 0 : 1;
    sent.emplace_back(data, data + size);
    --inside;
    return std::shared_future<std::string>();
  });
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        for (int j = 0; j < 100; ++j) helper.send({1, 2, 3, 4, 5}, {}, 2, 1'000'000);
      });
    }
  }
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(sent.size(), 1200U);
  for (std::size_t i = 0; i + 2 < sent.size(); i += 3)
    EXPECT_EQ(sent[i] + sent[i + 1] + sent[i + 2], "\1\2\3\4\5");
}

TEST(SendDataHelper, SleepsOnTheRealClock) {
  SendDataHelper helper([](const std::uint8_t*, std::uint64_t, const AttributeMap&) {
    return std::shared_future<std::string>();
  });
  const auto took = timeOf([&] {
    for (int i = 0; i < 2; ++i) helper.send({1}, {}, 100, 1);
  });
  EXPECT_GE(took, 1150ms);
  EXPECT_LT(took, 10s);
}

}  // namespace
}  // namespace library_test
