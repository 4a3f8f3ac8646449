#pragma once

#include <functional>

namespace kestrel::streams {

/// The descriptors of this process by which others see that it lives, and by which it hears of them. A child
/// that is forked would hold them open, and so seem to be its parent; there they are replaced by a socket
/// whose other end is closed. All are safe from any thread.
class ForkedSockets {
 public:
  /// Opens one by a call of the system that does not wait, and that no fork comes into. Returns what the call
  /// returns, with its errno. Throws std::bad_alloc.
  [[nodiscard]] static int open(const std::function<int()>& call);
  static void close(int descriptor) noexcept;
  /// What holds forks up while one is opened is there from now on.
  static void prepare();
};

}  // namespace kestrel::streams
