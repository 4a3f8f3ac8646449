#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kestreldata/kestreldata.hpp>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "../Eventually.hpp"
#include "remote_connectivity/asyncio/util/DataStruct.hpp"
#include "remote_connectivity/asyncio/util/KDAHelper.hpp"

namespace library_test {

using namespace remote_connectivity::asyncio::util;
using namespace std::chrono_literals;
using kestreldata::Array;
using kestreldata::TypedArray;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

/// The cap of every wait in these tests; sanitizers on a busy machine are slow.
inline constexpr std::chrono::seconds patience{60};

template <class Action>
std::chrono::steady_clock::duration timeOf(Action action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::steady_clock::now() - start;
}

inline const kestreldata::standalone::ArrayFactory arrays;
inline Array text(std::string_view value) {
  return arrays.createScalar(value);
}
inline Array chars(std::string_view value) {
  return arrays.createCharArray(value);
}
inline Array number(double value) {
  return arrays.createScalar(value);
}
inline double numberOf(const Array& array) {
  return TypedArray<double>(array)[0];
}
inline Array row(const std::vector<Array>& cells) {
  return arrays.createCellArray({1, cells.size()}, cells);
}
inline Array column(const std::vector<Array>& cells) {
  return arrays.createCellArray({cells.size(), 1}, cells);
}
inline Bytes encoded(const Array& array) {
  return KDAHelper().kdaToProtobufBytes(array);
}
inline Array decoded(const Bytes& bytes) {
  return KDAHelper().kdaFromProtobuf(bytes.data(), bytes.size());
}

}  // namespace library_test
