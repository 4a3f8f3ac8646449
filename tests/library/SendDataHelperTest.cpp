#include "remote_connectivity/asyncio/util/SendDataHelper.hpp"

#include <memory>
#include <optional>

#include "LogCapture.hpp"

namespace remote_connectivity::asyncio::util {

/// Reaches the constructor that takes a clock, and the stop flag, which nothing else shows.
class SendDataHelperAccess {
 public:
  static std::unique_ptr<SendDataHelper> make(const SendFunction& send,
                                              std::function<std::chrono::system_clock::time_point()> now,
                                              std::function<void(std::chrono::nanoseconds)> sleep) {
    return std::unique_ptr<SendDataHelper>(new SendDataHelper(send, {std::move(now), std::move(sleep)}));
  }
  static bool stopped(const SendDataHelper& helper) { return helper._stopped; }
};

}  // namespace remote_connectivity::asyncio::util

namespace library_test {

using std::chrono::nanoseconds;

const std::string tag = "SendDataHelper::sendWithLimit: ";

/// A helper whose clock moves only when the test says so, and when the helper sleeps.
class SendDataHelperTest : public testing::Test {
 protected:
  using Sent = std::pair<std::string, AttributeMap>;

  std::shared_future<std::string> send(const std::string& payload, std::size_t rate, std::size_t limit = 100,
                                       AttributeMap attributes = {}) {
    return helper->send({payload.begin(), payload.end()}, std::move(attributes), limit, rate);
  }
  Lines logged(Severity severity) const { return log.texts("asyncio::util::SendDataHelper", severity); }

  /// Calls stop() on another thread and waits until it has taken effect.
  void beginStop() {
    stopping = std::async(std::launch::async, [this] { helper->stop(); });
    ASSERT_TRUE(eventually("the stop flag", [&] { return SendDataHelperAccess::stopped(*helper); }));
  }

  LogCapture log;
  std::chrono::system_clock::time_point now{1000s};
  std::vector<nanoseconds> sleeps;
  std::function<void()> onNow = [] {};
  std::function<void()> onSleep = [] {};
  std::vector<Sent> sent;
  std::future<void> stopping;
  std::unique_ptr<SendDataHelper> helper = SendDataHelperAccess::make(
      [this](const std::uint8_t* data, std::uint64_t size, const AttributeMap& attributes) {
        sent.emplace_back(std::string(data, data + size), attributes);
        std::promise<std::string> done;
        done.set_value("message " + std::to_string(sent.size()));
        return done.get_future().share();
      },
      [this] {
        onNow();
        return now;
      },
      [this](nanoseconds wait) {
        sleeps.push_back(wait);
        onSleep();
        now += wait;
      });
};

struct ChunkCase {
  std::string payload;
  std::vector<std::pair<std::string, std::optional<long>>> chunks;  // bytes, and what follows if it is one
};

class Chunks : public SendDataHelperTest, public testing::WithParamInterface<ChunkCase> {};

TEST_P(Chunks, AreCutAtTheLimitAndMarked) {
  const AttributeMap users{{"user", 5L}, {"COMPRESSIONTYPE", 3L}, {"UNCOMPRESSEDSIZE", std::string("mine")}};
  const auto result = send(GetParam().payload, 50, 4, users);
  std::vector<Sent> expected;
  for (const auto& [bytes, next] : GetParam().chunks) {
    auto& attributes = expected.emplace_back(bytes, users).second;
    if (next) attributes["COMPRESSIONTYPE"] = std::string("chunk");
    if (next) attributes["UNCOMPRESSEDSIZE"] = *next;
  }
  EXPECT_EQ(sent, expected);
  EXPECT_EQ(result.get(), "message " + std::to_string(expected.size()));
}

INSTANTIATE_TEST_SUITE_P(Sizes, Chunks,
                         testing::Values(ChunkCase{"", {{"", {}}}}, ChunkCase{"abc", {{"abc", {}}}},
                                         ChunkCase{"abcd", {{"abcd", 0}}},
                                         ChunkCase{"abcde", {{"abcd", 4}, {"e", 0}}},
                                         ChunkCase{"abcdefgh", {{"abcd", 4}, {"efgh", 0}}},
                                         ChunkCase{"abcdefghij", {{"abcd", 4}, {"efgh", 4}, {"ij", 0}}}));

TEST_F(SendDataHelperTest, TellsOfEachChunkAndGivesNoStateForAnEmptySplit) {
  send("abcdef", 50, 4);
  EXPECT_THAT(logged(Severity::trace), ElementsAre("SendDataHelper::splitAndSend:  chunkSize: 4, offset: 0",
                                                   "SendDataHelper::splitAndSend:  chunkSize: 2, offset: 4"));
  EXPECT_FALSE(helper->splitAndSend({}, {}, 0, 50).valid());
}

struct RateCase {
  std::size_t rate;
  std::vector<nanoseconds> advances;  // of the clock, before each message
  std::vector<nanoseconds> sleeps;
  Lines lastLogged;
};

class Rate : public SendDataHelperTest, public testing::WithParamInterface<RateCase> {};

TEST_P(Rate, IsHeldBySleepingUntil1200MillisecondsOfThePeriod) {
  for (const nanoseconds advance : GetParam().advances) {
    now += advance;
    log.clear();
    send("x", GetParam().rate);
  }
  EXPECT_EQ(sleeps, GetParam().sleeps);
  EXPECT_EQ(logged(Severity::setup), GetParam().lastLogged);
  EXPECT_EQ(sent.size(), GetParam().advances.size());
}

const std::string reset = tag + " Resetting msgCounter and startTime";
const std::string first = tag + " msgCounter: 1";
std::string reached(const std::string& elapsed, const std::string& wait) {
  return tag + " Reached limit. elapsed: " + elapsed + ", msgCounter: 1. Waiting for " + wait;
}
std::string over(const std::string& elapsed) {
  return tag + " elapsed: " + elapsed +
         ", msgCounter: 1. Limit wasn't reached for 1sec. Resetting msgCounter and startTime";
}
INSTANTIATE_TEST_SUITE_P(
    Periods, Rate,
    testing::Values(RateCase{2, {0s, 400ms}, {}, {tag + " msgCounter: 2"}},
                    RateCase{1, {0s, 400ms}, {800ms}, {reached("0.400000", "0.800000"), reset, first}},
                    RateCase{2, {0s, 0s, 400ms, 0s}, {800ms}, {tag + " msgCounter: 2"}},
                    RateCase{1, {0s, 999'999'999ns, 1s}, {200'000'001ns}, {over("1.000000"), first}},
                    RateCase{0, {100ms, 0s, 2s}, {1100ms, 1200ms}, {over("2.000000"), reset, first}}));
INSTANTIATE_TEST_SUITE_P(
    ClockSteps, Rate,
    testing::Values(
        RateCase{1, {0s, -1h, 0s}, {1200ms, 1200ms}, {reached("0.000000", "1.200000"), reset, first}},
        RateCase{1, {0s, -1s}, {1200ms}, {reached("-1.000000", "1.200000"), reset, first}},
        RateCase{1, {0s, 1h}, {}, {over("3600.000000"), first}}));

TEST_F(SendDataHelperTest, AnswersWithTheEmptyTextOnceStopped) {
  helper->stop();
  EXPECT_EQ(send("x", 50).get(), "");
  EXPECT_EQ(send("abcdefgh", 50, 4).get(), "");
  EXPECT_THAT(sent, IsEmpty());
  EXPECT_THAT(logged(Severity::setup), Contains(tag + " SendDataHelper stopped."));
}

TEST_F(SendDataHelperTest, StillSendsTheMessageThatSleepsWhenStopComes) {
  onSleep = [this] {
    beginStop();
    EXPECT_EQ(stopping.wait_for(50ms), std::future_status::timeout) << "stop() must wait for the sleeper";
  };
  EXPECT_EQ(send("abcdefghij", 1, 4).get(), "");
  EXPECT_EQ(stopping.wait_for(patience), std::future_status::ready) << "stop() hangs";
  ASSERT_EQ(sent.size(), 2U) << "the first chunk, and the second, which slept";
}

TEST_F(SendDataHelperTest, DoesNotBeginToWaitOnceStopped) {
  send("x", 1);
  onNow = [this] { beginStop(); };
  EXPECT_EQ(send("x", 1).get(), "");
  EXPECT_EQ(stopping.wait_for(patience), std::future_status::ready) << "stop() hangs";
  EXPECT_EQ(sent.size(), 1U);
  EXPECT_THAT(logged(Severity::setup), Contains(tag + " SendDataHelper stopped during wait."));
}

TEST(SendDataHelper, SendsOnePayloadAtATimeAtTheRateOfTheRealClock) {
  std::string sent;  // unguarded on purpose: the helper serialises
  SendDataHelper helper([&](const std::uint8_t* data, std::uint64_t size, const AttributeMap&) {
    sent.append(data, data + size);
    return std::shared_future<std::string>();
  });
  const auto took = timeOf([&] {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([&] {
        for (int i = 0; i < 100; ++i) helper.send({'a', 'b', 'c', 'd', 'e'}, {}, 2, 1199);
      });
    }
  });
  EXPECT_EQ(sent.size(), 2000U);
  for (std::size_t i = 0; i < sent.size(); i += 5) ASSERT_EQ(sent.substr(i, 5), "abcde") << i;
  EXPECT_GE(took, 1s) << "1200 messages came through within one period";
}

}  // namespace library_test
