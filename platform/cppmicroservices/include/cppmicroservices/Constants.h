#pragma once

#include <string>

#include "cppmicroservices/detail/Export.h"

namespace cppmicroservices::Constants {

CPPMICROSERVICES_EXPORT extern const std::string OBJECTCLASS;
CPPMICROSERVICES_EXPORT extern const std::string SERVICE_ID;
CPPMICROSERVICES_EXPORT extern const std::string SERVICE_RANKING;
CPPMICROSERVICES_EXPORT extern const std::string SERVICE_SCOPE;
CPPMICROSERVICES_EXPORT extern const std::string SCOPE_SINGLETON;
CPPMICROSERVICES_EXPORT extern const std::string SCOPE_BUNDLE;
CPPMICROSERVICES_EXPORT extern const std::string SCOPE_PROTOTYPE;

}  // namespace cppmicroservices::Constants
