#pragma once

#include <cstdint>

namespace soak {

/// While connections may have been away, the time to notice and to come back included.
struct Outage {
  static constexpr std::uint32_t everybody = 0;

  std::uint32_t process = everybody;  ///< whose connections
  std::int64_t from = 0;
  std::int64_t to = 0;
};

}  // namespace soak
