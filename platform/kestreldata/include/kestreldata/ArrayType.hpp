#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "kestreldata/Export.hpp"

namespace kestreldata {

/// What the elements of an array are. The numbers travel between hosts and never change.
enum class ArrayType : int {
  LOGICAL = 1,
  CHAR = 2,
  STRING = 3,
  DOUBLE = 4,
  SINGLE = 5,
  INT8 = 6,
  UINT8 = 7,
  INT16 = 8,
  UINT16 = 9,
  INT32 = 10,
  UINT32 = 11,
  INT64 = 12,
  UINT64 = 13,
  COMPLEX_DOUBLE = 14,
  COMPLEX_SINGLE = 15,
  COMPLEX_INT8 = 16,
  COMPLEX_UINT8 = 17,
  COMPLEX_INT16 = 18,
  COMPLEX_UINT16 = 19,
  COMPLEX_INT32 = 20,
  COMPLEX_UINT32 = 21,
  COMPLEX_INT64 = 22,
  COMPLEX_UINT64 = 23,
  CELL = 24,
};

/// Sizes of an array, rows first; always at least two of them.
using ArrayDimensions = std::vector<std::size_t>;

/// The name of the enumerator, "unknown" for any other value.
[[nodiscard]] KESTRELDATA_EXPORT std::string_view toString(ArrayType type) noexcept;

/// Bytes per element of a type whose elements all have one size; 0 for STRING, CELL and any other value.
[[nodiscard]] KESTRELDATA_EXPORT std::size_t fixedElementSize(ArrayType type) noexcept;

}  // namespace kestreldata
