#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

/// Waits until the condition holds; returns whether it does in time.
template <class Condition>
bool becomesTrue(Condition condition, std::chrono::seconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

/// The same, naming what it waited for.
template <class Condition>
testing::AssertionResult eventually(const std::string& what, Condition condition) {
  if (becomesTrue(condition, std::chrono::seconds(60))) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "waited in vain for " << what;
}
