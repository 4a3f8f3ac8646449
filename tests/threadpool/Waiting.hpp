#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string_view>
#include <thread>

namespace kestrel::threadpool {

using namespace std::chrono_literals;
using SteadyTime = std::chrono::steady_clock::time_point;

inline SteadyTime now() {
  return std::chrono::steady_clock::now();
}

/// Counts up; waits, with a cap, for a count to be reached.
class Counter {
 public:
  int add() {
    std::lock_guard lock(_mutex);
    _changed.notify_all();
    return ++_count;
  }
  int count() const {
    std::lock_guard lock(_mutex);
    return _count;
  }
  [[nodiscard]] bool reaches(int target, std::chrono::milliseconds atMost = 20s) const {
    std::unique_lock lock(_mutex);
    return _changed.wait_for(lock, atMost, [&] { return _count >= target; });
  }

 private:
  mutable std::mutex _mutex;
  mutable std::condition_variable _changed;
  int _count = 0;
};

/// Waits, with a cap, for a condition that nobody signals.
template <class Condition>
[[nodiscard]] bool eventually(Condition condition) {
  for (const auto deadline = now() + 20s; now() < deadline; std::this_thread::sleep_for(1ms)) {
    if (condition()) return true;
  }
  return condition();
}

/// Asserts that the counter reaches the target, and says what for.
inline void expectReaches(const Counter& counter, int target, std::string_view what) {
  EXPECT_TRUE(counter.reaches(target))
      << "waited for " << target << " x " << what << ", got " << counter.count();
}

}  // namespace kestrel::threadpool
