#pragma once

#include <memory>

#include "Crew.hpp"
#include "Worker.hpp"

namespace soak {

/// The messengers that one process keeps, beside those that the crew's threads make. They go with it; the
/// crew must have been stopped then.
class Role {
 public:
  virtual ~Role() = default;
};

/// Makes the role and sets the crew to work.
[[nodiscard]] std::unique_ptr<Role> makeRole(Crew& crew, const Assignment& assignment);

}  // namespace soak
