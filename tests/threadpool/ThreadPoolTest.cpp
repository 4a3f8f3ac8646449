#include "kestrel/threadpool/ThreadPool.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <future>

#include "Waiting.hpp"
#include "kestrel/diagnostics/RecordObserver.hpp"
#include "kestrel/threadpool/makeThreadPool.hpp"

namespace kestrel::threadpool {
namespace {

std::ptrdiff_t threadsOfProcess() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

/// A pool with so many of its threads blocked until the gate opens, at the latest at the end.
struct BlockedPool {
  explicit BlockedPool(int threads, const ThreadPoolOptions& options = {}) : pool(makeThreadPool(options)) {
    for (int i = 0; i < threads; ++i) {
      pool->submit([this] {
        ++started;
        gate.wait(false);
      });
    }
    expectEventually("all work to start", [&] { return started == threads; });
  }
  ~BlockedPool() { open(); }
  void open() {
    gate = true;
    gate.notify_all();
  }

  std::atomic<int> started = 0;
  std::atomic<bool> gate = false;
  std::shared_ptr<ThreadPool> pool;
};

TEST(ThreadPool, RunsDelayedWorkPunctuallyWhile200ThreadsAreBlocked) {
  BlockedPool blocked(200);
  std::atomic<int> early = 0, late = 0, expired = 0;
  for (int i = 0; i < 300; ++i) {
    const auto when = Clock::now() + 20ms + i % 50 * 1ms;
    blocked.pool->submitAt(when, [&, when] {
      const auto lateness = Clock::now() - when;
      early += lateness < 0ns;
      late += lateness > 250ms;
      ++expired;
    });
  }
  expectEventually("all timers", [&] { return expired == 300; });
  EXPECT_EQ(early, 0);
  EXPECT_EQ(late, 0);
}

TEST(ThreadPool, LogsWhatEscapesItsWorkAndGoesOn) {
  std::atomic<int> logged = 0, ran = 0;
  const diagnostics::RecordObserver observer(
      [&](const auto& record) { logged += record.severity == diagnostics::Severity::error; });
  const auto pool = makeThreadPool();
  pool->submit([] { throw std::runtime_error("no paper"); });
  pool->submit([] { throw 7; });
  pool->submit([&] { ++ran; });
  expectEventually("two errors and one run", [&] { return logged == 2 && ran == 1; });
}

TEST(ThreadPool, EndsSurplusThreadsWhileOtherWorkGoesOn) {
  const auto threadsBefore = threadsOfProcess();
  constexpr int kept = 2, timerThread = 1;
  BlockedPool blocked(20, {.idleTime = 100ms, .keptThreads = kept});
  EXPECT_EQ(threadsOfProcess(), threadsBefore + timerThread + 20);
  blocked.open();
  expectEventually("the surplus threads to end", [&] {
    blocked.pool->submit([] {});  // steady light work must not keep the idle threads awake in turn
    return threadsOfProcess() == threadsBefore + timerThread + kept;
  });
}

TEST(ThreadPool, WaitsAtItsEndForWorkThatRunsAndDropsWhatIsNotYetDue) {
  BlockedPool blocked(1);
  Capture capture;
  blocked.pool->submitAt(Clock::now() + 1h, [held = std::move(capture.held)] {});
  auto destroyed =
      std::async(std::launch::async, [pool = std::move(blocked.pool)]() mutable { pool.reset(); });
  EXPECT_EQ(destroyed.wait_for(50ms), std::future_status::timeout);
  blocked.open();
  EXPECT_EQ(destroyed.wait_for(20s), std::future_status::ready);
  EXPECT_TRUE(capture.isGone());
}

TEST(ThreadPool, MayLoseItsLastOwnerInItsOwnWorkOrWithItsCaptures) {
  for (const bool inTheWork : {true, false}) {
    const auto released = std::make_shared<std::promise<void>>();
    auto pool = makeThreadPool();
    const std::weak_ptr<ThreadPool> watch = pool;
    pool->submit([released, inTheWork, owner = pool]() mutable {
      released->get_future().wait();
      if (inTheWork) owner.reset();
    });
    pool.reset();
    released->set_value();
    expectEventually("the pool to go", [&] { return watch.expired(); });
  }
}

}  // namespace
}  // namespace kestrel::threadpool
