#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>

#include "kestrel/host/Host.hpp"
#include "remote_connectivity/asyncio/util/Timer.hpp"

namespace remote_connectivity::asyncio::util {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Waits, with a cap, for a future without a value.
inline void expectReady(const std::future<void>& future, const char* what) {
  EXPECT_EQ(future.wait_for(20s), std::future_status::ready) << "waited for " << what;
}

/// Lets a test wait for a callback to run so many times.
class Expiries {
 public:
  explicit Expiries(int expected) : _missing(expected) {}

  void operator()() {
    _last = Clock::now();
    if (--_missing == 0) _all.set_value();
  }
  void expectAll() const { expectReady(_future, "expiries"); }
  int missing() const { return _missing; }
  Clock::time_point last() const { return _last; }

 private:
  std::atomic<int> _missing;
  std::atomic<Clock::time_point> _last{};
  std::promise<void> _all;
  std::future<void> _future = _all.get_future();
};

class TimerTest : public testing::Test {
 protected:
  kestrel::host::Host host;
};

}  // namespace remote_connectivity::asyncio::util
