#pragma once

#include <stdexcept>
#include <string>

#include "cppmicroservices/detail/Export.h"

namespace cppmicroservices {

/// A service cannot be registered or looked up as it was asked for.
class CPPMICROSERVICES_EXPORT ServiceException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace cppmicroservices
