#include "remote_connectivity/asyncio/util/SendDataHelper.hpp"

#include <memory>
#include <optional>

#include "TestTools.hpp"

namespace remote_connectivity::asyncio::util {

/// Reaches the constructor that takes a clock, and the stop flag, which nothing else shows.
class SendDataHelperAccess {
 public:
  static auto make(const SendFunction& send, auto now, auto sleep) {
    return std::unique_ptr<SendDataHelper>(new SendDataHelper(send, {now, sleep}));
  }
  static bool stopped(const SendDataHelper& helper) { return helper._stopped; }
};

}  // namespace remote_connectivity::asyncio::util

namespace library_test {

using std::chrono::nanoseconds;

/// A helper whose clock moves only when the test says so, and when the helper sleeps.
class SendDataHelperTest : public testing::Test {
 protected:
  using Sent = std::pair<std::string, AttributeMap>;

  std::shared_future<std::string> send(const std::string& payload, std::size_t rate, std::size_t limit = 100,
                                       AttributeMap attributes = {}) {
    return helper->send({payload.begin(), payload.end()}, std::move(attributes), limit, rate);
  }

  std::chrono::system_clock::time_point now{1000s};
  std::vector<nanoseconds> sleeps;
  std::function<void()> onSleep = [] {};
  std::vector<Sent> sent;
  std::unique_ptr<SendDataHelper> helper = SendDataHelperAccess::make(
      [this](const std::uint8_t* data, std::uint64_t size, const AttributeMap& attributes) {
        sent.emplace_back(std::string(data, data + size), attributes);
        return std::async(std::launch::deferred, [n = sent.size()] { return std::to_string(n); }).share();
      },
      [this] { return now; },
      [this](nanoseconds wait) {
        sleeps.push_back(wait);
        onSleep();
        now += wait;
      });
};

TEST_F(SendDataHelperTest, CutsPayloadsAtTheLimitAndMarksTheirChunks) {
  // Bytes, and what follows if it is a chunk.
  using Messages = std::vector<std::pair<std::string, std::optional<long>>>;
  for (const auto& [payload, messages] : {std::pair{"", Messages{{"", {}}}},
                                          {"abcd", {{"abcd", 0}}},
                                          {"abcdefghij", {{"abcd", 4}, {"efgh", 4}, {"ij", 0}}}}) {
    AttributeMap users{{"user", 5L}, {"COMPRESSIONTYPE", 3L}, {"UNCOMPRESSEDSIZE", std::string("mine")}};
    sent.clear();
    const auto result = send(payload, 50, 4, users);
    std::vector<Sent> expected;
    for (const auto& [bytes, next] : messages) {
      auto& attributes = expected.emplace_back(bytes, users).second;
      if (next) attributes["COMPRESSIONTYPE"] = std::string("chunk");
      if (next) attributes["UNCOMPRESSEDSIZE"] = *next;
    }
    EXPECT_EQ(sent, expected);
    EXPECT_EQ(result.get(), std::to_string(expected.size()));
  }
}

struct RateCase {
  std::size_t rate;
  std::vector<nanoseconds> advances;  // of the clock, before each message
  std::vector<nanoseconds> sleeps;
};

class Rate : public SendDataHelperTest, public testing::WithParamInterface<RateCase> {};

TEST_P(Rate, IsHeldBySleepingUntil1200MillisecondsOfThePeriod) {
  for (const nanoseconds advance : GetParam().advances) {
    now += advance;
    send("x", GetParam().rate);
  }
  EXPECT_EQ(sleeps, GetParam().sleeps);
  EXPECT_EQ(sent.size(), GetParam().advances.size());
}

INSTANTIATE_TEST_SUITE_P(Periods, Rate,
                         testing::Values(RateCase{2, {0s, 0s, 400ms, 0s}, {800ms}},
                                         RateCase{1, {0s, 999'999'999ns, 1s}, {200'000'001ns}},
                                         RateCase{0, {100ms, 0s, 2s}, {1100ms, 1200ms}}));
INSTANTIATE_TEST_SUITE_P(ClockSteps, Rate, testing::Values(RateCase{1, {0s, -1h, 0s}, {1200ms, 1200ms}}));

TEST_F(SendDataHelperTest, StillSendsTheMessageThatSleepsWhenStopComesButNoneAfterIt) {
  std::future<void> stopping;
  onSleep = [&] {
    stopping = std::async(std::launch::async, [this] { helper->stop(); });
    ASSERT_TRUE(eventually("the stop flag", [&] { return SendDataHelperAccess::stopped(*helper); }));
    EXPECT_EQ(stopping.wait_for(50ms), std::future_status::timeout) << "stop() must wait for the sleeper";
  };
  EXPECT_EQ(send("abcdefghij", 1, 4).get(), "");
  EXPECT_EQ(stopping.wait_for(patience), std::future_status::ready) << "stop() hangs";
  EXPECT_EQ(send("x", 50).get(), "");
  EXPECT_EQ(sent.size(), 2U) << "the first chunk, and the second, which slept";
}

}  // namespace library_test
