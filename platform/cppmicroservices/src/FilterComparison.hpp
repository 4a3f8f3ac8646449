#pragma once

#include <string>
#include <vector>

#include "FilterNode.hpp"
#include "cppmicroservices/Any.h"

namespace cppmicroservices::detail {

/// Compares a property with a filter's value. Of a vector, one element that meets the comparison is enough.
/// Numbers compare by their values, true and false as truth values, all else by text; a value that cannot be
/// compared does not match. Wildcards have a meaning in equality of text only.
[[nodiscard]] bool compareProperty(FilterNode::Kind kind, const Any& property,
                                   const std::vector<std::string>& pieces);

}  // namespace cppmicroservices::detail
