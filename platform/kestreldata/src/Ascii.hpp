#pragma once

#include <algorithm>
#include <string_view>
#include <type_traits>

#include "kestreldata/Exceptions.hpp"

namespace kestreldata::detail {

/// Throws NonAsciiCharInInputDataException unless every character is below 128.
template <typename Character>
void requireAscii(std::basic_string_view<Character> text) {
  const auto isForeign = [](Character c) { return static_cast<std::make_unsigned_t<Character>>(c) >= 128; };
  if (std::ranges::any_of(text, isForeign)) throw NonAsciiCharInInputDataException();
}

}  // namespace kestreldata::detail
