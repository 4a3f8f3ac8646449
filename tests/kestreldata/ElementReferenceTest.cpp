#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "Codec.hpp"

using namespace kestreldata;

namespace {

/// A 2x3x4 array whose elements are their own column-major positions.
TypedArray<std::int32_t> numbered() {
  std::vector<std::int32_t> positions(24);
  std::iota(positions.begin(), positions.end(), 0);
  return ArrayFactory().createArray<std::int32_t>({2, 3, 4}, positions.begin(), positions.end());
}

std::int32_t read(const TypedArray<std::int32_t>& array, const std::vector<std::size_t>& indices) {
  auto reference = array[indices.front()];
  if (indices.size() == 1) return reference;
  if (indices.size() == 2) return reference[indices[1]];
  if (indices.size() == 3) return reference[indices[1]][indices[2]];
  return reference[indices[1]][indices[2]][indices[3]];
}

}  // namespace

TEST(ElementReference, CountsColumnMajorWithTheLastIndexRunningOverTheRest) {
  const auto array = numbered();
  EXPECT_EQ(read(array, {17}), 17);
  EXPECT_EQ(read(array, {1, 0}), 1);
  EXPECT_EQ(read(array, {1, 2}), 5);
  EXPECT_EQ(read(array, {1, 11}), 23);
  EXPECT_EQ(read(array, {1, 2, 3}), 23);
  EXPECT_EQ(read(array, {0, 1, 2}), 14);
}

TEST(ElementReference, RefusesIndicesOutsideTheirDimension) {
  const auto array = numbered();
  for (const std::vector<std::size_t>& indices :
       {std::vector<std::size_t>{24}, {2, 0}, {0, 12}, {0, 3, 0}, {0, 0, 4}, {0, 0, 0, 0}, {SIZE_MAX, 0}})
    EXPECT_THROW(static_cast<void>(read(array, indices)), InvalidArrayIndexException)
        << testing::PrintToString(indices);
  const auto empty = ArrayFactory().createArray<std::int32_t>({1, 0});
  EXPECT_THROW(static_cast<void>(read(empty, {0, 0})), InvalidArrayIndexException);
}

TEST(ElementReference, WritesTheElementItNames) {
  auto array = numbered();
  array[1][2][3] = 100;
  array[0] = array[1][0];
  EXPECT_EQ(array[23], 100);
  EXPECT_EQ(array[0], 1);
}

TEST(ElementReference, OutlivesAnExchangeOfItsArrayWithoutTouchingForeignMemory) {
  auto array = numbered();
  const auto last = array[23];
  array = ArrayFactory().createScalar(std::int32_t{5});
  EXPECT_THROW(static_cast<void>(std::int32_t{last}), InvalidArrayIndexException);
}

TEST(ElementReference, CopiesCellsBetweenArrays) {
  const ArrayFactory factory;
  const TypedArray<Array> from = factory.createCellArray({1, 2}, factory.createScalar("a"), numbered());
  TypedArray<Array> to = factory.createCellArray({1, 3});
  for (std::size_t i = 0; i < 2; ++i) to[0][i] = from[0][i];
  EXPECT_EQ(Array(to),
            Array(factory.createCellArray({1, 3}, factory.createScalar("a"), numbered(), Array())));
}

TEST(StringElement, ReadsAsNarrowText) {
  const ArrayFactory factory;
  auto strings = factory.createArray<optional<String>>({1, 3}, {u"plain", std::nullopt, u"caf\u00e9"});
  EXPECT_EQ(castToString(strings[0]), "plain");
  EXPECT_THROW(static_cast<void>(castToString(strings[1])), MissingStringException);
  EXPECT_THROW(static_cast<void>(castToString(strings[2])), NonAsciiCharInInputDataException);
  strings[1] = u"set";
  EXPECT_EQ(castToString(std::as_const(strings)[0][1]), "set");
}

TEST(TypedView, NamesBothTypesWhenTheArrayHasAnother) {
  const Array text = ArrayFactory().createScalar("text");
  try {
    const TypedArray<std::uint64_t> numbers(text);
    FAIL() << "expected an exception";
  } catch (const InvalidArrayTypeException& error) {
    EXPECT_STREQ(error.what(), "Expected an array of type UINT64 (13), got one of type STRING (3)");
  }
}
