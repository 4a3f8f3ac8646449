#pragma once

#include <gtest/gtest.h>
#include <kestreldata/kestreldata.hpp>

namespace kestreldata {

inline void PrintTo(const Array& array, std::ostream* out) {
  *out << toString(array.getType()) << testing::PrintToString(array.getDimensions());
  if (array.getType() != ArrayType::CELL) return;
  for (const TypedArray<Array> cells(array); const Array& cell : cells) PrintTo(cell, &(*out << ' '));
}

}  // namespace kestreldata
