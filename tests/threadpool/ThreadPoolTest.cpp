#include "kestrel/threadpool/ThreadPool.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <stdexcept>
#include <vector>

#include "Waiting.hpp"
#include "kestrel/diagnostics/RecordObserver.hpp"
#include "kestrel/threadpool/makeThreadPool.hpp"

namespace kestrel::threadpool {
namespace {

std::ptrdiff_t threadsOfProcess() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

/// A pool with so many of its threads blocked until release() or the end.
class BlockedPool {
 public:
  explicit BlockedPool(int threads, const ThreadPoolOptions& options = {}) : pool(makeThreadPool(options)) {
    for (int i = 0; i < threads; ++i) {
      pool->submit([this] {
        started.add();
        (void)gate.reaches(1, 60s);
      });
    }
    expectReaches(started, threads, "blocking work started");
  }
  ~BlockedPool() { release(); }
  void release() { gate.add(); }

  Counter started, gate;
  std::shared_ptr<ThreadPool> pool;
};

TEST(ThreadPool, RunsDelayedWorkPunctuallyWhile200ThreadsAreBlocked) {
  BlockedPool blocked(200);
  constexpr int timers = 300;
  Counter expired;
  std::mutex mutex;
  std::vector<std::chrono::nanoseconds> lateness;
  for (int i = 0; i < timers; ++i) {
    const auto when = now() + 20ms + i % 50 * 1ms;
    blocked.pool->submitAt(when, [&, when] {
      {
        std::lock_guard lock(mutex);
        lateness.push_back(now() - when);
      }
      expired.add();
    });
  }
  expectReaches(expired, timers, "timer expired");
  std::lock_guard lock(mutex);
  EXPECT_GE(std::ranges::min(lateness), 0ns);
  EXPECT_LT(std::ranges::max(lateness), 250ms);
}

TEST(ThreadPool, RunsDelayedWorkInTheOrderOfItsTimes) {
  const auto pool = makeThreadPool();
  const auto start = now();
  std::mutex mutex;
  std::vector<int> order;
  Counter ran;
  for (const int place : {3, 1, 2}) {
    pool->submitAt(start + place * 100ms, [&, place] {
      {
        std::lock_guard lock(mutex);
        order.push_back(place);
      }
      ran.add();
    });
  }
  expectReaches(ran, 3, "delayed work run");
  std::lock_guard lock(mutex);
  EXPECT_THAT(order, testing::ElementsAre(1, 2, 3));
}

TEST(ThreadPool, LogsWhatEscapesItsWorkAndGoesOn) {
  std::mutex mutex;
  std::vector<std::string> errors;
  diagnostics::RecordObserver observer([&](const diagnostics::Record& record) {
    std::lock_guard lock(mutex);
    if (record.channel == "kestrel::threadpool" && record.severity == diagnostics::Severity::error) {
      errors.emplace_back(record.text);
    }
  });
  auto pool = makeThreadPool();
  Counter ran;
  pool->submit([] { throw std::runtime_error("no paper"); });
  pool->submit([] { throw 7; });
  pool->submit([&] { ran.add(); });
  expectReaches(ran, 1, "work run beside the failures");
  pool.reset();
  std::lock_guard lock(mutex);
  EXPECT_THAT(errors,
              testing::UnorderedElementsAre(testing::HasSubstr("no paper"), testing::HasSubstr("unknown")));
}

TEST(ThreadPool, EndsSurplusThreadsWhileOtherWorkGoesOn) {
  const auto threadsBefore = threadsOfProcess();
  constexpr int kept = 2, timerThread = 1;
  BlockedPool blocked(20, {.idleTime = 100ms, .keptThreads = kept});
  EXPECT_EQ(threadsOfProcess(), threadsBefore + timerThread + 20);
  blocked.release();
  const auto expected = threadsBefore + timerThread + kept;
  EXPECT_TRUE(eventually([&] {
    blocked.pool->submit([] {});  // steady light work must not keep the idle threads awake in turn
    return threadsOfProcess() == expected;
  })) << "waited for "
      << expected << " threads, got " << threadsOfProcess();
  Counter ran;
  for (int i = 0; i < 20; ++i) blocked.pool->submit([&] { ran.add(); });
  expectReaches(ran, 20, "work run after the pool had shrunk");
}

TEST(ThreadPool, WaitsAtItsEndForWorkThatRuns) {
  auto blocked = std::make_unique<BlockedPool>(1);
  auto destroyed =
      std::async(std::launch::async, [pool = std::move(blocked->pool)]() mutable { pool.reset(); });
  EXPECT_EQ(destroyed.wait_for(50ms), std::future_status::timeout);
  blocked->release();
  EXPECT_EQ(destroyed.wait_for(20s), std::future_status::ready);
}

TEST(ThreadPool, DropsAtItsEndWhatIsNotYetDue) {
  auto pool = makeThreadPool();
  auto promise = std::make_shared<std::promise<void>>();
  auto future = promise->get_future();
  pool->submitAt(now() + 1h, [promise = std::move(promise)] { promise->set_value(); });
  pool.reset();
  ASSERT_EQ(future.wait_for(0s), std::future_status::ready);
  EXPECT_THROW(future.get(), std::future_error);
}

TEST(ThreadPool, OutlivesItsLastOwnerThatGoesInItsOwnWork) {
  Counter done;
  Counter released;
  auto pool = makeThreadPool();
  auto& reference = *pool;
  reference.submit([&done, &released, pool = std::move(pool)]() mutable {
    (void)released.reaches(1);
    pool.reset();
    done.add();
  });
  released.add();
  expectReaches(done, 1, "work that destroyed its pool");
}

TEST(ThreadPool, IsDestroyedByTheCapturesOfItsOwnWork) {
  for (int i = 0; i < 100; ++i) {
    auto pool = makeThreadPool();
    std::weak_ptr<ThreadPool> watch = pool;
    auto& reference = *pool;
    reference.submit([kept = pool] {});
    pool.reset();
    ASSERT_TRUE(eventually([&] { return watch.expired(); })) << "waited for the pool to go";
  }
}

}  // namespace
}  // namespace kestrel::threadpool
