#include "remote_connectivity/asyncio/util/Timer.hpp"

#include <atomic>

#include "../Eventually.hpp"
#include "kestrel/framework/ServiceLookup.hpp"
#include "kestrel/host/Host.hpp"
#include "kestrel/threadpool/ThreadPool.hpp"

using namespace remote_connectivity::asyncio::util;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

struct TimerTest : testing::Test {
  kestrel::host::Host host;
  std::atomic<int> calls = 0;
};

TEST_F(TimerTest, CallsBackOncePerStartUnlessStoppedOrRestarted) {
  const struct {
    void (*arm)(Timer&);
    int calls;
    std::chrono::seconds notBefore;
  } rows[] = {{[](Timer& timer) { timer.start(1), timer.start(1); }, 2, 1s},
              {[](Timer& timer) { timer.start(1), timer.restart(2); }, 1, 2s},
              {[](Timer& timer) { timer.stop(), timer.start(1), timer.stop(), timer.start(2); }, 1, 2s}};
  for (const auto& [arm, expected, notBefore] : rows) {
    std::atomic<Clock::time_point> last{};
    Timer timer;
    timer.setCallback([&] {
      last = Clock::now();
      ++calls;
      throw std::runtime_error("from a timer's callback, which it outlives");
    });
    const auto begin = Clock::now();
    arm(timer);
    EXPECT_TRUE(eventually("the callback", [&, times = expected] { return calls == times; }));
    EXPECT_GE(last.load() - begin, notBefore - 1ms) << "the first expiry was not cancelled";
    calls = 0;
  }
}

TEST_F(TimerTest, DestroyedArmedEndsItsScheduleBeforeItLetsGoOfItsCallback) {
  const auto pool = kestrel::framework::findService<kestrel::threadpool::ThreadPool>();
  long usersWhileArmed = 0, usersAtTheEnd = 0;
  {
    std::shared_ptr<void> atTheEnd(nullptr, [&](void*) { usersAtTheEnd = pool.use_count(); });
    Timer timer;
    timer.setCallback([held = std::move(atTheEnd)] {});
    timer.start(3600);
    usersWhileArmed = pool.use_count();
  }
  EXPECT_EQ(usersAtTheEnd, usersWhileArmed - 1) << "the timer still holds the pool, its schedule does not";
}

TEST_F(TimerTest, CallbackMayReplaceItselfRestartItsTimerAndDestroyIt) {
  const std::string onTheHeap = "long enough to live on the heap, where a sanitizer sees it freed";
  auto timer = std::make_unique<Timer>();
  timer->setCallback([&, text = onTheHeap] {
    timer->setCallback([&, text] {
      timer.reset();
      EXPECT_EQ(text, onTheHeap);
      ++calls;
    });
    EXPECT_EQ(text, onTheHeap);
    timer->restart(0);
  });
  timer->start(3600);  // goes with the timer
  timer->start(0);
  EXPECT_TRUE(eventually("the callback", [&] { return calls == 1; }));
}
