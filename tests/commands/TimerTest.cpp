#include "remote_connectivity/asyncio/util/Timer.hpp"

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>

#include "TimerTools.hpp"

namespace remote_connectivity::asyncio::util {
namespace {

TEST_F(TimerTest, CallsBackOnAnotherThreadNotBeforeItsTime) {
  Expiries expiries(1);
  Timer timer;
  std::atomic<std::thread::id> thread;
  timer.setCallback([&] {
    thread = std::this_thread::get_id();
    expiries();
  });
  const auto begin = Clock::now();
  timer.start(1);
  expiries.expectAll();
  EXPECT_NE(thread.load(), std::this_thread::get_id());
  EXPECT_GE(expiries.last() - begin, 999ms) << "wall clock and steady clock differ by less";
}

TEST_F(TimerTest, ZeroSecondsIsNow) {
  Expiries expiries(1);
  Timer timer;
  timer.setCallback([&] { expiries(); });
  const auto begin = Clock::now();
  timer.start(0);
  expiries.expectAll();
  EXPECT_LT(expiries.last() - begin, 500ms);
}

TEST_F(TimerTest, StartedTwiceCallsBackTwice) {
  Expiries expiries(2);
  Timer timer;
  timer.setCallback([&] { expiries(); });
  timer.start(1);
  timer.start(1);
  expiries.expectAll();
}

TEST_F(TimerTest, RestartReplacesTheExpiryArmedLast) {
  Expiries expiries(1);
  Timer timer;
  timer.setCallback([&] { expiries(); });
  const auto begin = Clock::now();
  timer.start(1);
  timer.restart(2);
  expiries.expectAll();
  EXPECT_GE(expiries.last() - begin, 1999ms) << "the first expiry was not cancelled";
}

TEST_F(TimerTest, StoppedIsSilentAndCanBeStartedAgain) {
  Expiries stopped(1);
  Expiries later(1);
  Timer timer;
  timer.stop();  // nothing is armed
  timer.setCallback([&] { stopped(); });
  timer.start(0);
  stopped.expectAll();
  timer.start(1);
  timer.stop();
  timer.setCallback([&] { later(); });
  timer.start(2);  // by then the stopped one would have called back
  later.expectAll();
  EXPECT_EQ(stopped.missing(), 0);
  EXPECT_EQ(later.missing(), 0);
}

TEST_F(TimerTest, ExpiryWithoutCallbackOrAfterStopDoesNothing) {
  int calls = 0;
  Timer timer;
  timer.onTimerExpired(false);
  timer.setCallback([&] { ++calls; });
  timer.onTimerExpired(true);
  EXPECT_EQ(calls, 0);
  timer.onTimerExpired(false);
  EXPECT_EQ(calls, 1);
  timer.setCallback(nullptr);
  timer.onTimerExpired(false);
  EXPECT_EQ(calls, 1);
}

TEST_F(TimerTest, CallbackKeepsItsStateFromOneExpiryToTheNext) {
  int last = 0;
  Timer timer;
  timer.setCallback([&last, count = 0]() mutable { last = ++count; });
  timer.onTimerExpired(false);
  timer.onTimerExpired(false);
  EXPECT_EQ(last, 2);
}

TEST_F(TimerTest, OutlivesACallbackThatThrows) {
  Expiries expiries(2);
  Timer timer;
  timer.setCallback([&] {
    expiries();
    throw std::runtime_error("from a timer's callback");
  });
  timer.start(0);
  timer.start(0);
  expiries.expectAll();
}

class RecordingTimer : public Timer {
 public:
  void start(unsigned int seconds) override { record += "start " + std::to_string(seconds); }
  void stop() override { record += "stop, "; }
  std::string record;
};

TEST_F(TimerTest, RestartStopsAndStartsAsDerivedClassesDo) {
  RecordingTimer timer;
  timer.restart(3);
  EXPECT_EQ(timer.record, "stop, start 3");
}

TEST(TimerWithoutPool, IsRefused) {
  const kestrel::host::Host host({.installPath = {}, .registerThreadPool = false});
  EXPECT_THROW(Timer(), std::invalid_argument);
}

}  // namespace
}  // namespace remote_connectivity::asyncio::util
