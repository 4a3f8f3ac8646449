#include "ProducerBuffer.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <stdexcept>

#include "LogCapture.hpp"
#include "kestrel/host/Host.hpp"

namespace library_test {
namespace {

using namespace remote_connectivity::asyncio::util;
using Clock = std::chrono::steady_clock;

const std::string channel = "asyncio::util::ProducerBuffer";
const std::string tag = "ProducerBuffer::processSendQueue: ";

class ProducerBufferTest : public testing::Test {
 protected:
  struct Handed {
    std::string bytes;
    AttributeMap attributes;
    Clock::time_point when;
  };

  void make(std::chrono::milliseconds interval = 1ms) {
    buffer.emplace(
        [this](std::vector<std::uint8_t> bytes, AttributeMap attributes) {
          const std::lock_guard lock(mutex);
          ++attempts;
          if (failing) throw std::runtime_error("refused");
          handed.push_back({std::string(bytes.begin(), bytes.end()), std::move(attributes), Clock::now()});
          return std::shared_future<std::string>();
        },
        1000, interval);
  }
  void enqueue(const std::string& bytes, AttributeMap attributes = {}) {
    buffer->enqueue(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), std::move(attributes));
  }
  std::size_t count() {
    const std::lock_guard lock(mutex);
    return handed.size();
  }

  const kestrel::host::Host host;
  LogCapture log;
  std::mutex mutex;  // guards handed
  std::vector<Handed> handed;
  std::atomic<int> attempts = 0;
  std::atomic<bool> failing = false;
  std::optional<ProducerBuffer> buffer;
};

TEST_F(ProducerBufferTest, HandsMessagesOnInOrderOneIntervalApart) {
  make(100ms);
  EXPECT_TRUE(log.wrote(channel, Severity::setup, "starting periodic work with interval: 100"));
  const auto begun = Clock::now();
  AttributeMap attributes{{"n", 1L}};
  buffer->enqueue(reinterpret_cast<const std::uint8_t*>("a"), 1, std::move(attributes));
  EXPECT_TRUE(attributes.empty()) << "the attributes are taken, not copied";
  enqueue("");
  enqueue("c");
  ASSERT_TRUE(eventually("three messages", [&] { return count() == 3; }));
  EXPECT_EQ(handed[0].bytes + "," + handed[1].bytes + "," + handed[2].bytes, "a,,c");
  EXPECT_EQ(handed[0].attributes, (AttributeMap{{"n", 1L}}));
  EXPECT_LT(handed[0].when - begun, 5s);
  for (const auto gap : {handed[1].when - handed[0].when, handed[2].when - handed[1].when}) {
    EXPECT_GE(gap, 99ms);
    EXPECT_LT(gap, 5s);
  }
}

TEST_F(ProducerBufferTest, IsDestroyedPromptlyWhileItWaits) {
  const std::string stopped = tag + " _dataSendSchedulerStopSrc.stop_requested() == true. Returning";
  std::size_t sent = 0;
  EXPECT_TRUE(eventually("a run that is stopped while it waits", [&] {
    make(0ms);
    enqueue("a");
    EXPECT_TRUE(eventually("the message", [&] { return count() > sent; }));
    EXPECT_LT(timeOf([&] { buffer.reset(); }), 5s);
    EXPECT_EQ(count(), ++sent);
    return log.count(stopped) > 0;
  }));
  EXPECT_TRUE(log.wrote(channel, Severity::setup, stopped));
}

TEST_F(ProducerBufferTest, DropsWhatIsQueuedWhenItIsDestroyed) {
  make(1h);
  enqueue("a");
  ASSERT_TRUE(eventually("the first message", [&] { return count() == 1; }));
  enqueue("b");
  EXPECT_LT(timeOf([&] { buffer.reset(); }), 5s);
  EXPECT_EQ(attempts, 1);
}

TEST_F(ProducerBufferTest, KeepsTheMessageWhoseSendingFailedAndStops) {
  make();
  failing = true;
  enqueue("a");
  ASSERT_TRUE(eventually("the failure", [&] { return attempts == 1; }));
  EXPECT_EQ(buffer->enqueueAndCount(nullptr, 0, {}), 2U);
  EXPECT_THROW(buffer->processSendQueue(), std::runtime_error);
  failing = false;
  buffer->processSendQueue();
  ASSERT_EQ(count(), 1U) << "the periodic work went on after a failure";
  EXPECT_EQ(handed[0].bytes, "a");
  EXPECT_TRUE(log.wrote(channel, Severity::setup, tag + " _dataSendQueue.size: 2"));
  EXPECT_EQ(buffer->enqueueAndCount(nullptr, 0, {}), 2U);
}

TEST_F(ProducerBufferTest, IsMadeAndDestroyedAtOnceWithoutAHang) {
  for (int i = 0; i < 200; ++i) {
    make();
    if (i % 2 == 0) enqueue("x");
    buffer.reset();
  }
}

TEST(ProducerBuffer, NeedsAThreadPool) {
  EXPECT_THROW(ProducerBuffer([](auto, auto) { return std::shared_future<std::string>(); }, 1, 1ms),
               std::invalid_argument);
}

}  // namespace
}  // namespace library_test
