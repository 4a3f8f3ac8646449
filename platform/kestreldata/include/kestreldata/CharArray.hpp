#pragma once

#include <string>

#include "kestreldata/Text.hpp"
#include "kestreldata/TypedArray.hpp"

namespace kestreldata {

/// An array of UTF-16 code units. Threads: as Array.
class KESTRELDATA_EXPORT CharArray : public TypedArray<char16_t> {
 public:
  using TypedArray<char16_t>::TypedArray;

  /// The characters in column-major order. Throws NonAsciiCharInInputDataException unless all are 7-bit.
  [[nodiscard]] std::string toAscii() const { return utf16ToAscii({begin(), getNumberOfElements()}); }

  /// The code units in column-major order.
  [[nodiscard]] String toUTF16() const { return {begin(), end()}; }
};

}  // namespace kestreldata
