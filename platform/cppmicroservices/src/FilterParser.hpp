#pragma once

#include <string>

#include "FilterNode.hpp"

namespace cppmicroservices::detail {

/// Throws std::invalid_argument, which says what was expected and where, for a text that is not a filter.
[[nodiscard]] FilterNode::Pointer parseFilter(const std::string& text);

}  // namespace cppmicroservices::detail
