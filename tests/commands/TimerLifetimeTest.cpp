#include <atomic>
#include <memory>
#include <thread>

#include "TimerTools.hpp"

namespace remote_connectivity::asyncio::util {
namespace {

TEST_F(TimerTest, DestroyedArmedLetsGoOfItsCallbackAtOnce) {
  auto state = std::make_shared<int>(0);
  const std::weak_ptr<int> kept = state;
  {
    Timer timer;
    timer.setCallback([state = std::move(state)] { ++*state; });
    timer.start(3600);
    EXPECT_FALSE(kept.expired());
  }
  EXPECT_TRUE(kept.expired()) << "an armed expiry still holds the callback";
}

TEST_F(TimerTest, MayBeDestroyedByItsOwnCallbackWhichRunsOnToItsEnd) {
  Expiries expiries(1);
  auto timer = std::make_unique<Timer>();
  std::string text = "long enough to live on the heap, where a sanitizer sees it freed";
  timer->setCallback([&expiries, &timer, text] {
    timer.reset();
    EXPECT_EQ(text.size(), 64u);
    expiries();
  });
  timer->start(3600);  // goes with the timer
  timer->start(0);
  expiries.expectAll();
  EXPECT_EQ(timer, nullptr);
}

TEST_F(TimerTest, DestroyedOnAnotherThreadWaitsForTheCallbackInFlight) {
  std::promise<void> begun;
  std::promise<void> released;
  std::atomic<bool> ended = false;
  auto timer = std::make_unique<Timer>();
  timer->setCallback([&] {
    begun.set_value();
    expectReady(released.get_future(), "the test to go on");
    ended = true;
  });
  timer->start(0);
  expectReady(begun.get_future(), "the callback to begin");
  auto destroyed = std::async(std::launch::async, [&] {
    timer.reset();
    return ended.load();
  });
  EXPECT_EQ(destroyed.wait_for(50ms), std::future_status::timeout) << "did not wait for the callback";
  released.set_value();
  EXPECT_TRUE(destroyed.get());
}

TEST_F(TimerTest, DestroyedAtTheMomentOfExpiryNeverCallsBackAfterwards) {
  for (int round = 0; round < 500; ++round) {
    auto alive = std::make_shared<std::atomic<bool>>(true);
    auto timer = std::make_unique<Timer>();
    timer->setCallback([alive] { EXPECT_TRUE(*alive); });
    timer->start(0);
    std::thread([&] { timer.reset(); }).join();
    *alive = false;
  }
}

TEST_F(TimerTest, CallbackMayRestartItsTimer) {
  constexpr int rounds = 200;
  Expiries expiries(rounds);
  Timer timer;
  timer.setCallback([&] {
    if (expiries.missing() > 1) timer.restart(0);
    expiries();
  });
  timer.start(0);
  expiries.expectAll();
}

TEST_F(TimerTest, CallbackMayReplaceItself) {
  Expiries expiries(1);
  Timer timer;
  std::string text = "long enough to live on the heap, where a sanitizer sees it freed";
  timer.setCallback([&timer, &expiries, text] {
    timer.setCallback([&expiries] { expiries(); });
    EXPECT_EQ(text.size(), 64u);
    timer.start(0);
  });
  timer.start(0);
  expiries.expectAll();
}

}  // namespace
}  // namespace remote_connectivity::asyncio::util
