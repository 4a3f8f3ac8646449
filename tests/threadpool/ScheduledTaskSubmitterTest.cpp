#include "kestrel/threadpool/ScheduledTaskSubmitter.hpp"

#include <gtest/gtest.h>

#include <future>
#include <vector>

#include "Waiting.hpp"
#include "kestrel/threadpool/makeThreadPool.hpp"

namespace kestrel::threadpool {
namespace {

using WallClock = std::chrono::system_clock;

class ScheduledTaskSubmitterTest : public testing::Test {
 protected:
  void expectRuns(int count) {
    expectEventually("runs", [&] { return _runs >= count; });
  }

  std::atomic<int> _runs = 0;
  Capture _capture;
  std::shared_ptr<ThreadPool> _pool = makeThreadPool();
  std::unique_ptr<ScheduledTaskSubmitter> _submitter = std::make_unique<ScheduledTaskSubmitter>(_pool);
};

TEST_F(ScheduledTaskSubmitterTest, WaitsTheIntervalBeforeTheFirstRunAndAfterEachOne) {
  auto lastEnd = Clock::now();
  std::vector<Clock::duration> pauses;
  const auto work = [&](stop_token) {
    pauses.push_back(Clock::now() - lastEnd);
    std::this_thread::sleep_for(10ms);  // a run that takes its time
    lastEnd = Clock::now();
    ++_runs;
  };
  (void)_submitter->postWork(work, 20ms, false);
  expectRuns(4);
  _submitter->shutdown();
  for (const auto pause : pauses) EXPECT_GE(pause, 20ms);
}

TEST_F(ScheduledTaskSubmitterTest, EndsPeriodicWorkWhenStopIsRequested) {
  auto stop = _submitter->postWork([&, held = std::move(_capture.held)](stop_token) { ++_runs; }, 1ms, true);
  expectRuns(3);
  stop.request_stop();
  expectEventually("the work to be dropped", [&] { return _capture.isGone(); });
}

TEST_F(ScheduledTaskSubmitterTest, EndsPeriodicWorkThatThrows) {
  auto work = [&, held = std::move(_capture.held)](stop_token) {
    if (++_runs == 2) throw std::runtime_error("out of ink");
  };
  (void)_submitter->postWork(std::move(work), 1ms, true);
  expectEventually("the work to be dropped", [&] { return _capture.isGone(); });
  EXPECT_EQ(_runs, 2);
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
  expectRuns(2);
  EXPECT_EQ(early, 0);
  EXPECT_EQ(toldToStop, 1);
  (void)_submitter->postWork(work, WallClock::time_point::min());
  expectRuns(3);
}

TEST_F(ScheduledTaskSubmitterTest, WaitsInShutdownForTheRunAndDropsEverything) {
  std::promise<stop_token> started;
  std::promise<void> gate;
  auto work = [&, held = std::move(_capture.held)](stop_token token) {
    started.set_value(token);
    gate.get_future().wait();
  };
  (void)_submitter->postWork(work, 1h, true);
  (void)_submitter->postWork(work, 1h, false);
  (void)_submitter->postWork(std::move(work), WallClock::now() + 1h);
  const auto token = started.get_future().get();
  auto shutdown = std::async(std::launch::async, [&] { _submitter->shutdown(); });
  EXPECT_EQ(shutdown.wait_for(50ms), std::future_status::timeout);
  EXPECT_TRUE(token.stop_requested());
  gate.set_value();
  ASSERT_EQ(shutdown.wait_for(20s), std::future_status::ready);
  EXPECT_TRUE(_capture.isGone());
}

TEST_F(ScheduledTaskSubmitterTest, IsShutDownAndDestroyedWithItsPoolByItsOwnRun) {
  std::promise<void> posted;
  const std::weak_ptr<ThreadPool> watch = _pool;
  _pool.reset();
  auto work = [&, held = std::move(_capture.held)](stop_token) {
    posted.get_future().wait();
    _submitter->shutdown();
    _submitter.reset();
    EXPECT_TRUE(watch.expired());
    ++_runs;
  };
  (void)_submitter->postWork(std::move(work), 0ms, true);
  posted.set_value();
  expectRuns(1);
  expectEventually("the work to be dropped", [&] { return _capture.isGone(); });
}

TEST_F(ScheduledTaskSubmitterTest, NeitherRunsNorKeepsWorkAfterItsShutdown) {
  for (int i = 0; i < 300; ++i) {
    ScheduledTaskSubmitter submitter(_pool);
    std::atomic<bool> isShutDown = false, ranTooLate = false;
    Capture capture;
    const auto work = [&, held = std::move(capture.held)](stop_token) {
      if (isShutDown) ranTooLate = true;
    };
    const auto post = [&](auto& work) {
      (void)submitter.postWork(work, 0ms, true);
      (void)submitter.postWork(work, 1ms, false);
      (void)submitter.postWork(work, WallClock::now() + std::chrono::microseconds(i));
    };
    post(work);
    submitter.shutdown();
    isShutDown = true;
    post(work);
    ASSERT_FALSE(ranTooLate);
    ASSERT_EQ(capture.watch.use_count(), 1) << "the test's own work holds the capture, and nobody else";
  }
}

}  // namespace
}  // namespace kestrel::threadpool
