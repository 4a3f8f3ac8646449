#pragma once

#include <gmock/gmock.h>
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
inline const auto text = [](std::string_view value) -> Array { return arrays.createScalar(value); };
inline const auto chars = [](std::string_view value) -> Array { return arrays.createCharArray(value); };
inline const auto number = [](double value) -> Array { return arrays.createScalar(value); };
inline const auto encoded = [](const Array& array) { return KDAHelper().kdaToProtobufBytes(array); };
inline Array decoded(const Bytes& bytes) {
  return KDAHelper().kdaFromProtobuf(bytes.data(), bytes.size());
}
inline Array row(const std::vector<Array>& cells) {
  return arrays.createCellArray({1, cells.size()}, cells);
}
inline Array column(const std::vector<Array>& cells) {
  return arrays.createCellArray({cells.size(), 1}, cells);
}

}  // namespace library_test
