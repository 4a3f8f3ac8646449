#pragma once

#include <kestreldata/kestreldata.hpp>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "remote_connectivity/asyncio/util/DataStruct.hpp"
#include "remote_connectivity/asyncio/util/KDAHelper.hpp"

namespace library_test {

using kestreldata::Array;
using kestreldata::ArrayDimensions;
using kestreldata::ArrayType;
using kestreldata::TypedArray;
using remote_connectivity::asyncio::util::AttributeMap;
using remote_connectivity::asyncio::util::DataStruct;

inline const kestreldata::ArrayFactory& arrays() {
  static const kestreldata::standalone::ArrayFactory factory;
  return factory;
}

inline Array text(const std::string& value) {
  return arrays().createScalar(std::string_view(value));
}
inline Array chars(const std::string& value) {
  return arrays().createCharArray(std::string_view(value));
}
inline Array number(double value) {
  return arrays().createScalar(value);
}

/// A row of cells.
inline Array row(std::vector<Array> elements) {
  const std::size_t count = elements.size();
  return arrays().createCellArray({1, count}, std::move(elements));
}
inline Array column(std::vector<Array> elements) {
  const std::size_t count = elements.size();
  return arrays().createCellArray({count, 1}, std::move(elements));
}

inline std::vector<std::uint8_t> encoded(const Array& array) {
  return remote_connectivity::asyncio::util::KDAHelper().kdaToProtobufBytes(array);
}
inline TypedArray<Array> decodedCell(const std::vector<std::uint8_t>& bytes) {
  return remote_connectivity::asyncio::util::KDAHelper().kdaFromProtobuf(bytes.data(), bytes.size());
}
inline std::string textOf(const Array& array) {
  return remote_connectivity::asyncio::util::KDAHelper().kdaToString(array).first;
}
inline double numberOf(const Array& array) {
  return TypedArray<double>(array)[0];
}

}  // namespace library_test
