#include <memory>
#include <vector>

#include "ProducerBuffer.hpp"
#include "TimerTools.hpp"

namespace remote_connectivity::asyncio::util {
namespace {

// Each idle buffer keeps a thread of the pool blocked.
TEST_F(TimerTest, IsPunctualAmongHundredsOfTimersAndIdleBuffers) {
  std::vector<std::unique_ptr<ProducerBuffer>> buffers(200);
  for (auto& buffer : buffers) {
    buffer = std::make_unique<ProducerBuffer>([](auto, auto) { return std::shared_future<std::string>(); },
                                              1000, 1ms);
  }
  std::vector<Timer> others(300);
  for (auto& other : others) {
    other.setCallback([] { ADD_FAILURE() << "an hour has not passed"; });
    other.start(3600);
  }
  Expiries expiries(1);
  Timer timer;
  timer.setCallback([&] { expiries(); });
  const auto begin = Clock::now();
  timer.start(1);
  expiries.expectAll();
  const auto late = expiries.last() - begin - 1s;
  RecordProperty("late_us",
                 static_cast<int>(std::chrono::duration_cast<std::chrono::microseconds>(late).count()));
  EXPECT_GE(late, -1ms) << "wall clock and steady clock differ by less";
  EXPECT_LE(late, 250ms) << "the pool has no thread for the expiry";
}

}  // namespace
}  // namespace remote_connectivity::asyncio::util
