#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <string>

namespace kestrel::streams {

/// The longest that any test waits for something that must happen.
inline constexpr std::chrono::seconds patience{30};

/// A door that threads wait at until it is opened.
class Door {
 public:
  void open() {
    const std::lock_guard lock(_mutex);
    _open = true;
    _changed.notify_all();
  }
  /// Fails the test, naming what was waited for, if nobody opens in time.
  void pass(const std::string& what) {
    std::unique_lock lock(_mutex);
    EXPECT_TRUE(_changed.wait_for(lock, patience, [this] { return _open; })) << "waited for: " << what;
  }

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _open = false;
};

/// Waits for a future; fails the test, naming what was waited for, if it is not ready in time.
template <class Future>
[[nodiscard]] bool ready(const Future& future, const std::string& what) {
  const bool done = future.wait_for(patience) == std::future_status::ready;
  EXPECT_TRUE(done) << "waited for: " << what;
  return done;
}

}  // namespace kestrel::streams
