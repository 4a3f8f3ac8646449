#include "transfer/ProducerBuffer.hpp"

#include <atomic>
#include <optional>
#include <stdexcept>

#include "TestTools.hpp"
#include "kestrel/host/Host.hpp"

namespace library_test {

class ProducerBufferTest : public testing::Test {
 protected:
  void make(std::chrono::milliseconds interval) {
    const auto send = [this](const Bytes&, const AttributeMap&) {
      ++attempts;
      if (failing) throw std::runtime_error("refused");
      return std::shared_future<std::string>();
    };
    buffer.emplace(send, 1000, interval);
  }
  void enqueue() { buffer->enqueue(nullptr, 0, {}); }
  std::size_t enqueueAndCount() { return buffer->enqueueAndCount(nullptr, 0, {}); }
  testing::AssertionResult soonAttempted(int times) {
    return eventually(std::to_string(times) + " attempts to send", [=, this] { return attempts == times; });
  }

  const kestrel::host::Host host;
  std::atomic<int> attempts = 0;
  std::atomic<bool> failing = false;
  std::optional<ProducerBuffer> buffer;
};

TEST_F(ProducerBufferTest, HandsMessagesOnOneIntervalApart) {
  make(100ms);
  const auto took = timeOf([&] {
    for (int i = 0; i < 3; ++i) enqueue();
    EXPECT_TRUE(soonAttempted(3));
  });
  EXPECT_GE(took, 198ms);
}

TEST_F(ProducerBufferTest, KeepsTheMessageWhoseSendingFailedAndStops) {
  make(1ms);
  failing = true;
  enqueue();
  ASSERT_TRUE(soonAttempted(1));
  ASSERT_EQ(enqueueAndCount(), 2U) << "the message is lost";
  EXPECT_THROW(buffer->processSendQueue(), std::runtime_error);
  failing = false;
  buffer->processSendQueue();
  EXPECT_EQ(enqueueAndCount(), 2U) << "the periodic work went on after a failure";
}

TEST_F(ProducerBufferTest, DropsWhatIsQueuedWhenItIsDestroyedAndDoesNotWait) {
  for (int i = 0; i < 200; ++i) {
    attempts = 0;
    make(i % 2 == 0 ? std::chrono::milliseconds(1h) : 1ms);
    for (int messages = i % 3; messages > 0; --messages) enqueue();
    buffer.reset();
    EXPECT_LE(attempts, i % 2 == 0 ? 1 : 2) << "it did not keep to its interval";
  }
}

}  // namespace library_test
