#include "transports/memory/MemoryQueue.hpp"

#include <gtest/gtest.h>

#include <thread>

#include "Waiting.hpp"
#include "transports/memory/BufferPool.hpp"

namespace kestrel::streams {
namespace {

std::shared_ptr<const MemoryMessage> message(std::uint64_t sequence) {
  const std::uint8_t byte = 1;
  return std::make_shared<MemoryMessage>(Stamp{.producer = 1, .sequence = sequence}, &byte, 1,
                                         datastreaming::AttributeMap{});
}

TEST(MemoryQueue, CountsBytesUntilTheEntriesAreGoneNotUntilTheyAreTaken) {
  MemoryQueue queue(1000);
  queue.push(message(1), 300);
  std::vector<MemoryQueue::Entry> batch;
  ASSERT_TRUE(queue.take(batch, {}));
  EXPECT_EQ(queue.budget().used(), 300U);
  batch.clear();
  EXPECT_EQ(queue.budget().used(), 0U);
}

TEST(MemoryQueue, TakesAllThatIsQueuedInOneBatchInOrder) {
  MemoryQueue queue(1000);
  for (std::uint64_t i = 1; i <= 5; ++i) queue.push(message(i), 1);
  std::vector<MemoryQueue::Entry> batch;
  ASSERT_TRUE(queue.take(batch, {}));
  ASSERT_EQ(batch.size(), 5U);
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(batch[i].message->stamp.sequence, i + 1);
}

TEST(MemoryQueue, ComesBackEmptyAtTheDeadline) {
  MemoryQueue queue(1000);
  std::vector<MemoryQueue::Entry> batch;
  const TimePoint deadline = Clock::now() + std::chrono::milliseconds(5);
  const auto now = queue.take(batch, deadline);
  ASSERT_TRUE(now);
  EXPECT_GE(*now, deadline);
  EXPECT_TRUE(batch.empty());
}

TEST(MemoryQueue, StopWakesTheTaker) {
  MemoryQueue queue(1000);
  auto taking = std::async(std::launch::async, [&] {
    std::vector<MemoryQueue::Entry> batch;
    return queue.take(batch, {}).has_value();
  });
  queue.stop();
  ASSERT_TRUE(ready(taking, "take() to return after stop()"));
  EXPECT_FALSE(taking.get());
}

TEST(BufferPool, ReusesTheBlockUsedLastAndKeepsNoMoreThanItsBound) {
  BufferPool pool(2 << 20);
  std::uint8_t* const block = pool.acquire(1'000'000);
  pool.release(block, 1'000'000);
  EXPECT_EQ(pool.kept(), std::size_t{1} << 20);
  EXPECT_EQ(pool.acquire(900'000), block);
  pool.release(block, 900'000);
  std::uint8_t* const large = pool.acquire(3 << 20);
  pool.release(large, 3 << 20);
  EXPECT_EQ(pool.kept(), std::size_t{1} << 20) << "a block beyond the bound is not kept";
}

TEST(BufferPool, GivesBlocksPastItsLargestSizeAtFullSize) {
  BufferPool pool;
  const std::size_t size = BufferPool::largestBlock + 1;
  std::uint8_t* const block = pool.acquire(size);
  block[size - 1] = 1;
  pool.release(block, size);
  EXPECT_EQ(pool.kept(), 0U);
}

}  // namespace
}  // namespace kestrel::streams
