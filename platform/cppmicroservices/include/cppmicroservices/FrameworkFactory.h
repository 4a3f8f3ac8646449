#pragma once

#include "cppmicroservices/Framework.h"
#include "cppmicroservices/detail/Export.h"

namespace cppmicroservices {

/// Makes frameworks. They share nothing but the code of the bundles they load.
class CPPMICROSERVICES_EXPORT FrameworkFactory {
 public:
  Framework NewFramework();
};

}  // namespace cppmicroservices
