#include "ProducerBuffer.hpp"

#include <atomic>
#include <optional>
#include <stdexcept>

#include "TestTools.hpp"
#include "kestrel/host/Host.hpp"

namespace library_test {

class ProducerBufferTest : public testing::Test {
 protected:
  void make(std::chrono::milliseconds interval) {
    const auto send = [this](const Bytes& bytes, const AttributeMap& attributes) {
      ++attempts;
      if (failing) throw std::runtime_error("refused");
      const std::lock_guard lock(mutex);
      handed.append(bytes.begin(), bytes.end()).append(attributes.contains("n") ? "n," : ",");
      return std::shared_future<std::string>();
    };
    buffer.emplace(send, 1000, interval);
  }
  static const std::uint8_t* dataOf(const std::string& bytes) {
    return reinterpret_cast<const std::uint8_t*>(bytes.data());
  }
  void enqueue(const std::string& bytes, AttributeMap attributes = {}) {
    buffer->enqueue(dataOf(bytes), bytes.size(), std::move(attributes));
  }
  std::size_t enqueueAndCount(const std::string& bytes) {
    return buffer->enqueueAndCount(dataOf(bytes), bytes.size(), {});
  }
  testing::AssertionResult soonHanded(const std::string& expected) {
    return eventually(expected, [&] {
      const std::lock_guard lock(mutex);
      return handed == expected;
    });
  }

  const kestrel::host::Host host;
  std::mutex mutex;  // guards handed
  std::string handed;
  std::atomic<int> attempts = 0;
  std::atomic<bool> failing = false;
  std::optional<ProducerBuffer> buffer;
};

TEST_F(ProducerBufferTest, HandsMessagesOnInOrderOneIntervalApart) {
  make(100ms);
  const auto took = timeOf([&] {
    enqueue("a", {{"n", 1L}});
    enqueue("");
    enqueue("c");
    EXPECT_TRUE(soonHanded("an,,c,"));
  });
  EXPECT_GE(took, 198ms);
  EXPECT_LT(took, 5s);
}

TEST_F(ProducerBufferTest, DropsWhatIsQueuedWhenItIsDestroyedAndDoesNotWait) {
  make(1h);
  enqueue("a");
  EXPECT_TRUE(soonHanded("a,"));
  enqueue("b");
  EXPECT_LT(timeOf([&] { buffer.reset(); }), 5s);
  EXPECT_EQ(attempts, 1);
}

TEST_F(ProducerBufferTest, KeepsTheMessageWhoseSendingFailedAndStops) {
  make(1ms);
  failing = true;
  enqueue("a");
  ASSERT_TRUE(eventually("the failure", [&] { return attempts == 1; }));
  EXPECT_EQ(enqueueAndCount("b"), 2U);
  EXPECT_THROW(buffer->processSendQueue(), std::runtime_error);
  failing = false;
  buffer->processSendQueue();
  EXPECT_TRUE(soonHanded("a,"));
  EXPECT_EQ(enqueueAndCount("c"), 2U) << "the periodic work went on after a failure";
}

TEST_F(ProducerBufferTest, IsMadeAndDestroyedAtOnceWithoutAHang) {
  for (int i = 0; i < 200; ++i) {
    make(std::chrono::milliseconds(i % 2));
    if (i % 4 < 2) enqueue("x");
    buffer.reset();
  }
}

}  // namespace library_test
