#pragma once

#include <string>
#include <unordered_map>

#include "cppmicroservices/Any.h"
#include "cppmicroservices/Framework.h"
#include "cppmicroservices/detail/Export.h"

namespace cppmicroservices {

using FrameworkConfiguration = std::unordered_map<std::string, Any>;

/// Makes frameworks. They share nothing but the code of the bundles they load.
class CPPMICROSERVICES_EXPORT FrameworkFactory {
 public:
  Framework NewFramework();
};

}  // namespace cppmicroservices
