#pragma once

#include <algorithm>
#include <string_view>

namespace cppmicroservices::detail {

/// Property names are plain ASCII, so the locale has no say in their case.
constexpr char lowered(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, {}, lowered, lowered);
}

}  // namespace cppmicroservices::detail
