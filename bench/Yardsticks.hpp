#pragma once

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// The value below which half of the samples lie.
inline double median(std::vector<double> samples) {
  const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
  std::nth_element(samples.begin(), middle, samples.end());
  return *middle;
}

/// Keeps this thread, and the threads that it starts from now on, on one core.
class PinnedToOneCore {
 public:
  PinnedToOneCore() {
    sched_getaffinity(0, sizeof _before, &_before);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<unsigned>(sched_getcpu()), &one);
    sched_setaffinity(0, sizeof one, &one);
  }
  ~PinnedToOneCore() { sched_setaffinity(0, sizeof _before, &_before); }
  PinnedToOneCore(const PinnedToOneCore&) = delete;
  PinnedToOneCore& operator=(const PinnedToOneCore&) = delete;

 private:
  cpu_set_t _before;
};

/// Median time in seconds in which one thread hands an item to another by mutex and condition variable.
inline double medianHandOff(int rounds) {
  std::mutex mutex;
  std::condition_variable changed;
  int turn = 0;  // even: ours, odd: theirs
  const auto pass = [&](int mine, int count) {
    for (int i = 0; i < count; ++i) {
      std::unique_lock lock(mutex);
      changed.wait(lock, [&] { return turn % 2 == mine; });
      ++turn;
      changed.notify_one();
    }
  };
  std::thread other([&] { pass(1, rounds); });
  std::vector<double> samples;
  for (int i = 0; i < rounds; ++i) {
    const auto start = Clock::now();
    pass(0, 1);
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return turn % 2 == 0; });
    samples.push_back(secondsSince(start) / 2);
  }
  other.join();
  return median(std::move(samples));
}

/// Time in seconds of one copy into a new buffer.
inline double copyIntoNewBuffer(const std::vector<std::uint8_t>& source) {
  const auto start = Clock::now();
  const std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[source.size()]);
  std::memcpy(copy.get(), source.data(), source.size());
  asm volatile("" : : "r"(copy.get()) : "memory");  // the copy must happen
  return secondsSince(start);
}

}  // namespace bench
