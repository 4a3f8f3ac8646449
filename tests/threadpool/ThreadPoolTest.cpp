#include "kestrel/threadpool/ThreadPool.hpp"

#include <atomic>
#include <filesystem>
#include <future>
#include <latch>

#include "../Eventually.hpp"
#include "kestrel/diagnostics/RecordObserver.hpp"
#include "kestrel/threadpool/makeThreadPool.hpp"

using namespace kestrel::threadpool;
using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// A pool with so many of its threads blocked until the gate opens.
struct BlockedPool {
  explicit BlockedPool(int threads, const ThreadPoolOptions& options = {}) : pool(makeThreadPool(options)) {
    for (int i = 0; i < threads; ++i)
      pool->submit([this] {
        ++started;
        gate.wait();
      });
    EXPECT_TRUE(eventually("all work to start", [&] { return started == threads; }));
  }
  std::atomic<int> started = 0;
  std::latch gate{1};
  std::shared_ptr<ThreadPool> pool;
};

TEST(ThreadPool, RunsDelayedWorkWhenItIsDueWhile200ThreadsAreBlocked) {
  BlockedPool blocked(200);
  std::atomic<int> early = 0, expired = 0;
  for (int i = 0; i < 300; ++i) {
    const auto when = Clock::now() + 20ms + i % 50 * 1ms;
    blocked.pool->submitAt(when, [&, when] {
      early += Clock::now() < when;
      ++expired;
    });
  }
  EXPECT_TRUE(eventually("all delayed work", [&] { return expired == 300; }));
  EXPECT_EQ(early, 0);
  blocked.gate.count_down();
}

TEST(ThreadPool, LogsWhatEscapesItsWorkAndGoesOn) {
  std::atomic<int> logged = 0, ran = 0;
  const kestrel::diagnostics::RecordObserver observer([&](const auto&) { ++logged; });
  const auto pool = makeThreadPool();
  pool->submit([] { throw std::runtime_error("no paper"); });
  pool->submit([] { throw 7; });
  pool->submit([&] { ++ran; });
  EXPECT_TRUE(eventually("two errors and one run", [&] { return logged == 2 && ran == 1; }));
}

TEST(ThreadPool, EndsSurplusThreadsWhileOtherWorkGoesOn) {
  const auto threads = [] { return std::distance(fs::directory_iterator("/proc/self/task"), {}); };
  const auto expected = threads() + 1 + 2;  // that of the timers, and those to be kept
  BlockedPool blocked(20, {.idleTime = 100ms, .keptThreads = 2});
  blocked.gate.count_down();
  EXPECT_TRUE(eventually("the surplus threads to end", [&] {
    blocked.pool->submit([] {});  // steady light work must not keep the idle threads awake in turn
    return threads() == expected;
  }));
}

TEST(ThreadPool, WaitsAtItsEndForWorkThatRunsAndDropsWhatIsNotYetDue) {
  BlockedPool blocked(1);
  const auto captured = std::make_shared<int>();
  blocked.pool->submitAt(Clock::now() + 1h, [captured] {});
  const auto destroyed = std::async(std::launch::async, [&] { blocked.pool.reset(); });
  EXPECT_EQ(destroyed.wait_for(50ms), std::future_status::timeout);
  blocked.gate.count_down();
  destroyed.wait();
  EXPECT_EQ(captured.use_count(), 1);
}
