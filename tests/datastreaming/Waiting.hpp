#pragma once

#include <atomic>
#include <future>

#include "../Eventually.hpp"

namespace kestrel::streams {

/// The longest that any test waits for something that must happen.
inline constexpr std::chrono::seconds patience{60};

/// A door that threads wait at until it is opened.
class Door {
 public:
  void open() { _open = true; }
  /// Fails the test, naming what was waited for, if nobody opens in time.
  void pass(const std::string& what) {
    EXPECT_TRUE(eventually(what, [this] { return _open.load(); }));
  }

 private:
  std::atomic<bool> _open = false;
};

/// Waits for a future; fails the test, naming what was waited for, if it is not ready in time.
template <class Future>
[[nodiscard]] bool ready(const Future& future, const std::string& what) {
  const bool done = future.wait_for(patience) == std::future_status::ready;
  EXPECT_TRUE(done) << "waited for: " << what;
  return done;
}

}  // namespace kestrel::streams
