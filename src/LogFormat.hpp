#pragma once

#include <chrono>
#include <ostream>
#include <string>

namespace remote_connectivity::asyncio::util {

/// A duration that log lines show in seconds with six decimals; formatted only when it is written.
struct LoggedSeconds {
  std::chrono::nanoseconds duration;

  friend std::ostream& operator<<(std::ostream& out, const LoggedSeconds& seconds) {
    return out << std::to_string(std::chrono::duration<double>(seconds.duration).count());
  }
};

}  // namespace remote_connectivity::asyncio::util
