#pragma once

#include <cstddef>
#include <string>

#include "kestreldata/Exceptions.hpp"

namespace kestreldata::detail {

[[noreturn, gnu::cold]] inline void refuse(const char* what, std::size_t expected, std::size_t actual) {
  throw SerializationException("Invalid array message: expected " + std::string(what) + " " +
                               std::to_string(expected) + ", got " + std::to_string(actual));
}

/// Throws SerializationException, which says what a message should have had and what it has.
inline void require(bool holds, const char* what, std::size_t expected, std::size_t actual) {
  if (!holds) refuse(what, expected, actual);
}

inline void requireEqual(const char* what, std::size_t expected, std::size_t actual) {
  require(expected == actual, what, expected, actual);
}

}  // namespace kestreldata::detail
