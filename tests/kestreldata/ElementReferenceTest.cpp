#include <gmock/gmock.h>

#include <numeric>

#include "Codec.hpp"

using namespace kestreldata;

static const ArrayFactory factory;

/// A 2x3x4 array whose elements are their own column-major positions.
static TypedArray<std::int32_t> numbered() {
  std::vector<std::int32_t> positions(24);
  std::iota(positions.begin(), positions.end(), 0);
  return factory.createArray<std::int32_t>({2, 3, 4}, positions.begin(), positions.end());
}

TEST(ElementReference, CountsColumnMajorWithTheLastIndexRunningOverTheRest) {
  const auto array = numbered();
  EXPECT_EQ(array[17], 17);
  EXPECT_EQ(array[1][0], 1);
  EXPECT_EQ(array[1][2], 5);
  EXPECT_EQ(array[1][11], 23);
  EXPECT_EQ(array[1][2][3], 23);
  EXPECT_EQ(array[0][1][2], 14);
}

TEST(ElementReference, RefusesIndicesOutsideTheirDimension) {
  const auto array = numbered();
  EXPECT_THROW((void)array[24], InvalidArrayIndexException);
  EXPECT_THROW((void)array[2][0], InvalidArrayIndexException);
  EXPECT_THROW((void)array[SIZE_MAX][0], InvalidArrayIndexException);
  EXPECT_THROW((void)array[0][12], InvalidArrayIndexException);
  EXPECT_THROW((void)array[0][3][0], InvalidArrayIndexException);
  EXPECT_THROW((void)array[0][0][4], InvalidArrayIndexException);
  EXPECT_THROW((void)array[0][0][0][0], InvalidArrayIndexException);
  const auto empty = factory.createArray<std::int32_t>({1, 0});
  EXPECT_THROW((void)empty[0][0], InvalidArrayIndexException);
}

TEST(ElementReference, WritesTheElementItNames) {
  auto array = numbered();
  array[1][2][3] = 100;
  array[0] = array[1][0];
  EXPECT_EQ(array[23], 100);
  EXPECT_EQ(array[0], 1);
  const TypedArray<Array> from = factory.createCellArray({1, 2}, factory.createScalar("a"), array);
  TypedArray<Array> to = factory.createCellArray({1, 3});
  for (std::size_t i = 0; i < 2; ++i) to[0][i] = from[0][i];
  EXPECT_EQ(Array(to), Array(factory.createCellArray({1, 3}, factory.createScalar("a"), array, Array())));
}

TEST(ElementReference, OutlivesAnExchangeOfItsArrayWithoutTouchingForeignMemory) {
  auto array = numbered();
  const auto last = array[23];
  array = factory.createScalar(std::int32_t{5});
  EXPECT_THROW((void)std::int32_t{last}, InvalidArrayIndexException);
}

TEST(ElementReference, ReadsStringsAsNarrowText) {
  auto strings = factory.createArray<optional<String>>({1, 3}, {u"plain", std::nullopt, u"caf\u00e9"});
  EXPECT_EQ(castToString(strings[0]), "plain");
  EXPECT_THROW((void)castToString(strings[1]), MissingStringException);
  EXPECT_THROW((void)castToString(strings[2]), NonAsciiCharInInputDataException);
}

TEST(TypedView, NamesBothTypesWhenTheArrayHasAnother) {
  EXPECT_THAT([] { (void)TypedArray<std::uint64_t>(factory.createScalar("text")); },
              testing::ThrowsMessage<InvalidArrayTypeException>(
                  "Expected an array of type UINT64 (13), got one of type STRING (3)"));
}
