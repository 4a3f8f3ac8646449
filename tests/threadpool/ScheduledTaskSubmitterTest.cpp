#include "kestrel/threadpool/ScheduledTaskSubmitter.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Waiting.hpp"
#include "kestrel/diagnostics/RecordObserver.hpp"
#include "kestrel/threadpool/makeThreadPool.hpp"

namespace kestrel::threadpool {
namespace {

using WallClock = std::chrono::system_clock;

class ScheduledTaskSubmitterTest : public testing::Test {
 protected:
  Counter _runs;
  std::shared_ptr<ThreadPool> _pool = makeThreadPool();
  std::unique_ptr<ScheduledTaskSubmitter> _submitter = std::make_unique<ScheduledTaskSubmitter>(_pool);
};

TEST_F(ScheduledTaskSubmitterTest, RepeatsWithAFixedDelayAfterEachRun) {
  constexpr auto interval = 20ms;
  std::vector<std::pair<SteadyTime, SteadyTime>> runs;
  (void)_submitter->postWork(
      [&](stop_token) {
        const auto start = now();
        std::this_thread::sleep_for(10ms);  // a run that takes its time
        runs.emplace_back(start, now());
        _runs.add();
      },
      interval, true);
  expectReaches(_runs, 4, "periodic run");
  _submitter->shutdown();
  for (std::size_t i = 1; i < runs.size(); ++i) EXPECT_GE(runs[i].first - runs[i - 1].second, interval);
}

TEST_F(ScheduledTaskSubmitterTest, StartsAtOnceOrAfterOneIntervalAsAsked) {
  const auto posted = now();
  Counter later;
  std::atomic<SteadyTime> firstLater{};
  (void)_submitter->postWork([&](stop_token) { _runs.add(); }, 1h, true);
  (void)_submitter->postWork(
      [&](stop_token) {
        if (later.count() == 0) firstLater = now();
        later.add();
      },
      60ms, false);
  expectReaches(_runs, 1, "run that starts at once");
  expectReaches(later, 1, "run that starts after one interval");
  _submitter->shutdown();
  EXPECT_GE(firstLater.load() - posted, 60ms);
}

TEST_F(ScheduledTaskSubmitterTest, EndsPeriodicWorkWhenStopIsRequested) {
  auto captured = std::make_shared<int>();
  const std::weak_ptr<int> watch = captured;
  auto stop =
      _submitter->postWork([&, captured = std::move(captured)](stop_token) { _runs.add(); }, 1ms, true);
  expectReaches(_runs, 3, "periodic run");
  stop.request_stop();
  EXPECT_TRUE(eventually([&] { return watch.expired(); })) << "waited for the work to be dropped";
}

TEST_F(ScheduledTaskSubmitterTest, EndsPeriodicWorkThatThrowsAndLogsIt) {
  Counter logged;
  diagnostics::RecordObserver observer([&](const diagnostics::Record& record) {
    if (record.text.find("out of ink") != record.text.npos) logged.add();
  });
  auto captured = std::make_shared<int>();
  const std::weak_ptr<int> watch = captured;
  (void)_submitter->postWork(
      [&, captured = std::move(captured)](stop_token) {
        if (_runs.add() == 2) throw std::runtime_error("out of ink");
      },
      1ms, true);
  EXPECT_TRUE(eventually([&] { return watch.expired(); })) << "waited for the work to be dropped";
  EXPECT_EQ(_runs.count(), 2);
  EXPECT_EQ(logged.count(), 1);
}

TEST_F(ScheduledTaskSubmitterTest, RunsOneShotsOnceAtTheirTimeWithTheStateOfTheirToken) {
  struct Seen {
    SteadyTime when;
    bool stopRequested;
  };
  std::promise<Seen> kept, stopped;
  const auto posted = now();
  const auto report = [](std::promise<Seen>& seen) {
    return [&seen](stop_token token) { seen.set_value({now(), token.stop_requested()}); };
  };
  (void)_submitter->postWork(report(kept), WallClock::now() + 80ms);
  _submitter->postWork(report(stopped), WallClock::now() + 80ms).request_stop();
  const auto first = kept.get_future().get(), second = stopped.get_future().get();
  EXPECT_GE(first.when - posted, 80ms);
  EXPECT_FALSE(first.stopRequested);
  EXPECT_GE(second.when - posted, 80ms);
  EXPECT_TRUE(second.stopRequested);
}

TEST_F(ScheduledTaskSubmitterTest, AcceptsTimesAtBothEndsOfTheClock) {
  (void)_submitter->postWork([&](stop_token) { _runs.add(); }, WallClock::time_point::min());
  (void)_submitter->postWork([&](stop_token) { _runs.add(); }, WallClock::time_point::max());
  (void)_submitter->postWork([&](stop_token) { _runs.add(); }, std::chrono::milliseconds::max(), false);
  expectReaches(_runs, 1, "work of the past");
  _submitter->shutdown();
  EXPECT_EQ(_runs.count(), 1);
}

TEST_F(ScheduledTaskSubmitterTest, WaitsInShutdownForTheRunAndRequestsItsStop) {
  Counter gate;
  stop_token seen;
  (void)_submitter->postWork(
      [&](stop_token token) {
        seen = token;
        _runs.add();
        (void)gate.reaches(1);
      },
      1ms, true);
  expectReaches(_runs, 1, "periodic run");
  auto shutdown = std::async(std::launch::async, [&] { _submitter->shutdown(); });
  EXPECT_EQ(shutdown.wait_for(50ms), std::future_status::timeout);
  EXPECT_TRUE(seen.stop_requested());
  gate.add();
  ASSERT_EQ(shutdown.wait_for(20s), std::future_status::ready);
  EXPECT_EQ(_runs.count(), 1);
}

TEST_F(ScheduledTaskSubmitterTest, ReleasesPendingWorkInShutdown) {
  auto captured = std::make_shared<int>();
  const std::weak_ptr<int> watch = captured;
  (void)_submitter->postWork([captured](stop_token) {}, 1h, false);
  (void)_submitter->postWork([captured](stop_token) {}, WallClock::now() + 1h);
  captured.reset();
  EXPECT_FALSE(watch.expired());
  _submitter->shutdown();
  EXPECT_TRUE(watch.expired());
}

TEST_F(ScheduledTaskSubmitterTest, ReleasesWorkThatRanBeforeShutdownReturns) {
  struct Captured {
    ~Captured() { owner = nullptr; }
    std::atomic<int*>& owner;
  };
  for (int i = 0; i < 200; ++i) {
    int target = 0;
    std::atomic<int*> owner = &target;
    ScheduledTaskSubmitter submitter(_pool);
    (void)submitter.postWork([captured = std::make_shared<Captured>(owner)](stop_token) {}, 0ms, true);
    submitter.shutdown();
    ASSERT_EQ(owner, nullptr);
  }
}

TEST_F(ScheduledTaskSubmitterTest, DropsWorkPostedAfterShutdown) {
  _submitter->shutdown();
  auto captured = std::make_shared<int>();
  const std::weak_ptr<int> watch = captured;
  (void)_submitter->postWork([&, captured](stop_token) { _runs.add(); }, 1ms, true);
  (void)_submitter->postWork([&, captured](stop_token) { _runs.add(); }, WallClock::now());
  captured.reset();
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(_runs.count(), 0);
}

TEST_F(ScheduledTaskSubmitterTest, ReturnsFromAShutdownThatItsOwnRunCalls) {
  auto captured = std::make_shared<int>();
  const std::weak_ptr<int> watch = captured;
  (void)_submitter->postWork(
      [&, captured = std::move(captured)](stop_token) {
        _submitter->shutdown();
        _runs.add();
      },
      0ms, true);
  expectReaches(_runs, 1, "run that shut its submitter down");
  EXPECT_TRUE(eventually([&] { return watch.expired(); })) << "waited for the work to be dropped";
  EXPECT_EQ(_runs.count(), 1);
}

TEST_F(ScheduledTaskSubmitterTest, IsDestroyedWithItsPoolByItsOwnRun) {
  Counter posted;
  const std::weak_ptr<ThreadPool> watch = _pool;
  _pool.reset();
  (void)_submitter->postWork(
      [&](stop_token) {
        (void)posted.reaches(1);
        _submitter.reset();
        EXPECT_TRUE(watch.expired());
        _runs.add();
      },
      0ms, true);
  posted.add();
  expectReaches(_runs, 1, "run that destroyed its submitter");
}

TEST_F(ScheduledTaskSubmitterTest, NeverRunsWorkOfADestroyedSubmitter) {
  for (int i = 0; i < 300; ++i) {
    std::atomic<bool> isGone{false}, ranTooLate{false};
    {
      ScheduledTaskSubmitter submitter(_pool);
      const auto check = [&](stop_token) {
        if (isGone) ranTooLate = true;
      };
      (void)submitter.postWork(check, 0ms, true);
      (void)submitter.postWork(check, 1ms, false);
      (void)submitter.postWork(check, WallClock::now() + std::chrono::microseconds(i));
      std::this_thread::yield();
    }
    isGone = true;
    ASSERT_FALSE(ranTooLate);
  }
}

TEST_F(ScheduledTaskSubmitterTest, RefusesWhatHasNoMeaning) {
  EXPECT_THROW(ScheduledTaskSubmitter(nullptr), std::invalid_argument);
  EXPECT_THROW((void)_submitter->postWork({}, 1ms, true), std::invalid_argument);
  EXPECT_THROW((void)_submitter->postWork({}, WallClock::now()), std::invalid_argument);
  EXPECT_THROW((void)_submitter->postWork([](stop_token) {}, -1ms, true), std::invalid_argument);
}

}  // namespace
}  // namespace kestrel::threadpool
