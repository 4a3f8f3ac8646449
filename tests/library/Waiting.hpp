#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>

namespace library_test {

using namespace std::chrono_literals;

/// The cap of every wait in these tests; sanitizers on a busy machine are slow.
inline constexpr std::chrono::seconds patience{60};

/// Waits until the condition holds; names what it waited for when it never does.
template <class Condition>
testing::AssertionResult eventually(const std::string& what, Condition condition,
                                    std::chrono::milliseconds cap = patience) {
  const auto deadline = std::chrono::steady_clock::now() + cap;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return testing::AssertionFailure() << "waited " << cap.count() << " ms in vain for " << what;
    }
    std::this_thread::sleep_for(1ms);
  }
  return testing::AssertionSuccess();
}

template <class Future>
testing::AssertionResult becomesReady(const Future& future, const std::string& what) {
  if (future.wait_for(patience) == std::future_status::ready) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "waited in vain for " << what;
}

template <class Action>
std::chrono::steady_clock::duration timeOf(Action action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::steady_clock::now() - start;
}

}  // namespace library_test
