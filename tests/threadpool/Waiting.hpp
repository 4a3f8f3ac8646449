#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string_view>
#include <thread>

namespace kestrel::threadpool {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Waits, with a cap, for the condition.
template <class Condition>
void expectEventually(std::string_view what, Condition condition) {
  for (const auto deadline = Clock::now() + 20s; Clock::now() < deadline; std::this_thread::sleep_for(1ms)) {
    if (condition()) return;
  }
  EXPECT_TRUE(condition()) << "waited for " << what;
}

/// Something that work captures, and whether it is gone.
struct Capture {
  bool isGone() const { return watch.expired(); }

  std::shared_ptr<int> held = std::make_shared<int>();
  std::weak_ptr<int> watch = held;
};

}  // namespace kestrel::threadpool
