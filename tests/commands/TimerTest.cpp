#include "remote_connectivity/asyncio/util/Timer.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "ProducerBuffer.hpp"
#include "kestrel/host/Host.hpp"

using namespace remote_connectivity::asyncio::util;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

void expectReady(const std::future<void>& future, const char* what) {
  EXPECT_EQ(future.wait_for(20s), std::future_status::ready) << "waited for " << what;
}

/// Lets a test wait for a callback to run so many times.
struct Expiries {
  explicit Expiries(int expected) : missing(expected) {}
  void operator()() {
    last = Clock::now();
    if (--missing == 0) all.set_value();
  }
  void expectAll() { expectReady(all.get_future(), "expiries"); }

  std::atomic<int> missing;
  std::atomic<Clock::time_point> last{};
  std::promise<void> all;
};

struct TimerTest : testing::Test {
  kestrel::host::Host host;
};

TEST_F(TimerTest, CallsBackOncePerStartUnlessStoppedOrRestarted) {
  const struct {
    void (*arm)(Timer&);
    int calls;
    std::chrono::seconds notBefore;
  } rows[] = {{[](Timer& timer) { timer.start(1), timer.start(1); }, 2, 1s},
              {[](Timer& timer) { timer.start(1), timer.restart(2); }, 1, 2s},
              {[](Timer& timer) { timer.stop(), timer.start(1), timer.stop(), timer.start(2); }, 1, 2s}};
  for (const auto& [arm, calls, notBefore] : rows) {
    Expiries expiries(calls);
    Timer timer;
    timer.setCallback([&] {
      expiries();
      throw std::runtime_error("from a timer's callback, which it outlives");
    });
    const auto begin = Clock::now();
    arm(timer);
    expiries.expectAll();
    EXPECT_GE(expiries.last.load() - begin, notBefore - 1ms) << "the first expiry was not cancelled";
  }
}

// Each idle buffer keeps a thread of the pool blocked.
TEST_F(TimerTest, IsPunctualAmongHundredsOfTimersAndIdleBuffers) {
  std::vector<std::unique_ptr<ProducerBuffer>> buffers(200);
  for (auto& buffer : buffers) {
    const auto send = [](auto, auto) { return std::shared_future<std::string>(); };
    buffer = std::make_unique<ProducerBuffer>(send, 1000, 1ms);
  }
  std::vector<Timer> others(300);
  for (auto& other : others) {
    other.setCallback([] { ADD_FAILURE() << "an hour has not passed"; });
    other.start(3600);
  }
  Expiries expiries(1);
  Timer timer;
  timer.setCallback([&, test = std::this_thread::get_id()] {
    EXPECT_NE(std::this_thread::get_id(), test);
    expiries();
  });
  const auto begin = Clock::now();
  timer.start(1);
  expiries.expectAll();
  const auto late = expiries.last.load() - begin - 1s;
  EXPECT_GE(late, -1ms) << "wall clock and steady clock differ by less";
  EXPECT_LE(late, 250ms) << "the pool has no thread for the expiry";
}

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

const std::string onTheHeap = "long enough to live on the heap, where a sanitizer sees it freed";

TEST_F(TimerTest, CallbackMayReplaceItselfRestartItsTimerAndDestroyIt) {
  Expiries expiries(1);
  auto timer = std::make_unique<Timer>();
  timer->setCallback([&, text = onTheHeap] {
    timer->setCallback([&, text] {
      timer.reset();
      EXPECT_EQ(text, onTheHeap);
      expiries();
    });
    EXPECT_EQ(text, onTheHeap);
    timer->restart(0);
  });
  timer->start(3600);  // goes with the timer
  timer->start(0);
  expiries.expectAll();
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
  const auto destroyed = std::async(std::launch::async, [&] {
    timer.reset();
    EXPECT_TRUE(ended);
  });
  EXPECT_EQ(destroyed.wait_for(50ms), std::future_status::timeout) << "did not wait for the callback";
  released.set_value();
}

TEST_F(TimerTest, DestroyedAtTheMomentOfExpiryNeverCallsBackAfterwards) {
  for (int round = 0; round < 500; ++round) {
    const auto alive = std::make_shared<std::atomic<bool>>(true);
    auto timer = std::make_unique<Timer>();
    timer->setCallback([alive] { EXPECT_TRUE(*alive); });
    timer->start(0);
    std::thread([&] { timer.reset(); }).join();
    *alive = false;
  }
}
