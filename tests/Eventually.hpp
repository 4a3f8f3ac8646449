#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

/// Waits until the condition holds; names what it waited for when it never does.
template <class Condition>
testing::AssertionResult eventually(const std::string& what, Condition condition,
                                    std::chrono::seconds patience = std::chrono::seconds(60)) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return testing::AssertionFailure() << "waited in vain for " << what;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return testing::AssertionSuccess();
}
