#pragma once

#include <string>
#include <unordered_map>

#include "cppmicroservices/AnyMap.h"

namespace cppmicroservices {

/// What a service is registered with, beside its interfaces.
using ServiceProperties = std::unordered_map<std::string, Any>;

}  // namespace cppmicroservices
