#pragma once

#include <cstdint>

namespace cppmicroservices {

/// What Framework::WaitForStop() has seen.
class FrameworkEvent {
 public:
  enum Type : std::uint32_t { FRAMEWORK_STOPPED = 0x40, FRAMEWORK_WAIT_TIMEDOUT = 0x200 };

  explicit FrameworkEvent(Type type) : _type(type) {}
  [[nodiscard]] Type GetType() const { return _type; }

 private:
  Type _type;
};

}  // namespace cppmicroservices
