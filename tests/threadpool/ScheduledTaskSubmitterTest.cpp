#include "kestrel/threadpool/ScheduledTaskSubmitter.hpp"

#include <atomic>
#include <future>

#include "../Eventually.hpp"
#include "kestrel/threadpool/makeThreadPool.hpp"

using namespace kestrel::threadpool;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using WallClock = std::chrono::system_clock;

struct ScheduledTaskSubmitterTest : testing::Test {
  std::atomic<int> _runs = 0;
  const std::shared_ptr<int> _captured = std::make_shared<int>();
  std::shared_ptr<ThreadPool> _pool = makeThreadPool();
  std::unique_ptr<ScheduledTaskSubmitter> _submitter = std::make_unique<ScheduledTaskSubmitter>(_pool);
};

TEST_F(ScheduledTaskSubmitterTest, WaitsTheIntervalBeforeTheFirstRunAndAfterEachOne) {
  auto lastEnd = Clock::now();
  const auto work = [&](stop_token) {
    EXPECT_GE(Clock::now() - lastEnd, 20ms);
    std::this_thread::sleep_for(10ms);  // a run that takes its time
    lastEnd = Clock::now();
    ++_runs;
  };
  (void)_submitter->postWork(work, 20ms, false);
  EXPECT_TRUE(eventually("4 runs", [&] { return _runs >= 4; }));
  _submitter->shutdown();
}

TEST_F(ScheduledTaskSubmitterTest, EndsPeriodicWorkThatIsStoppedOrThrows) {
  auto stop = _submitter->postWork([&, held = _captured](stop_token) { ++_runs; }, 1ms, true);
  EXPECT_TRUE(eventually("3 runs", [&] { return _runs >= 3; }));
  stop.request_stop();
  std::atomic<int> failures = 0;
  auto work = [&, held = _captured](stop_token) {
    if (++failures == 2) throw std::runtime_error("out of ink");
  };
  (void)_submitter->postWork(std::move(work), 1ms, true);
  EXPECT_TRUE(eventually("the work to be dropped", [&] { return _captured.use_count() == 1; }));
  EXPECT_EQ(failures, 2);
}

TEST_F(ScheduledTaskSubmitterTest, RunsOneShotsOnceAtTheirTimeEvenIfTheyAreToStop) {
  const auto due = Clock::now() + 80ms;
  std::atomic<int> early = 0, toldToStop = 0;
  const auto work = [&](stop_token token) {
    early += Clock::now() < due;
    toldToStop += token.stop_requested();
    ++_runs;
  };
  (void)_submitter->postWork(work, WallClock::now() + 81ms);
  _submitter->postWork(work, WallClock::now() + 81ms).request_stop();
  (void)_submitter->postWork(work, WallClock::time_point::max());
  EXPECT_TRUE(eventually("2 runs", [&] { return _runs >= 2; }));
  EXPECT_EQ(early, 0);
  EXPECT_EQ(toldToStop, 1);
}

TEST_F(ScheduledTaskSubmitterTest, WaitsInShutdownForTheRunAndDropsEverything) {
  std::promise<stop_token> started;
  std::promise<void> gate;
  auto work = [&, held = _captured](stop_token token) {
    started.set_value(token);
    gate.get_future().wait();
  };
  (void)_submitter->postWork(work, 1h, true);
  (void)_submitter->postWork(std::move(work), WallClock::now() + 1h);
  const auto token = started.get_future().get();
  const auto shutdown = std::async(std::launch::async, [&] { _submitter->shutdown(); });
  EXPECT_EQ(shutdown.wait_for(50ms), std::future_status::timeout);
  EXPECT_TRUE(token.stop_requested());
  gate.set_value();
  shutdown.wait();
  EXPECT_EQ(_captured.use_count(), 1);
}

TEST_F(ScheduledTaskSubmitterTest, IsShutDownAndDestroyedWithItsPoolByItsOwnRun) {
  std::promise<void> posted;
  const std::weak_ptr<ThreadPool> watch = _pool;
  _pool.reset();
  const auto work = [&](stop_token) {
    posted.get_future().wait();
    _submitter->shutdown();
    _submitter.reset();
    EXPECT_TRUE(watch.expired());
    ++_runs;
  };
  (void)_submitter->postWork(work, 0ms, true);
  posted.set_value();
  EXPECT_TRUE(eventually("1 run", [&] { return _runs == 1; }));
}

TEST_F(ScheduledTaskSubmitterTest, KeepsNoWorkThatItCouldRunAfterItsShutdown) {
  for (int i = 0; i < 300; ++i) {
    ScheduledTaskSubmitter submitter(_pool);
    const auto work = [held = _captured](stop_token) {};
    (void)submitter.postWork(work, 0ms, true);
    (void)submitter.postWork(work, i % 2 * 1ms, false);
    submitter.shutdown();
    (void)submitter.postWork(work, 0ms, true);
    ASSERT_EQ(_captured.use_count(), 2) << "the test's own work holds the capture, and nobody else";
  }
}
