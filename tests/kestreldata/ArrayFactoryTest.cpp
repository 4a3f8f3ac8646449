#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "Codec.hpp"

using namespace kestreldata;

namespace {

const ArrayFactory factory;
constexpr std::size_t huge = std::numeric_limits<std::size_t>::max();

}  // namespace

TEST(ArrayFactoryText, BecomesAStringScalarOrARowOfCharacters) {
  const Array scalar = factory.createScalar("name");
  const CharArray row = factory.createCharArray("name");
  EXPECT_EQ(scalar.getDimensions(), (ArrayDimensions{1, 1}));
  EXPECT_EQ(castToString(TypedArray<optional<String>>(scalar)[0]), "name");
  EXPECT_EQ(row.getDimensions(), (ArrayDimensions{1, 4}));
  EXPECT_EQ(row.toAscii(), "name");
  EXPECT_EQ(row.toUTF16(), u"name");
  EXPECT_EQ(factory.createCharArray("").getDimensions(), (ArrayDimensions{1, 0}));
}

TEST(ArrayFactoryText, BeyondAsciiIsRefusedWhereItIsNarrow) {
  EXPECT_THROW(static_cast<void>(factory.createScalar("caf\xc3\xa9")), NonAsciiCharInInputDataException);
  EXPECT_THROW(static_cast<void>(factory.createCharArray("\x80")), NonAsciiCharInInputDataException);
  EXPECT_EQ(factory.createCharArray("\x7f").toAscii(), "\x7f");
  const CharArray wide = factory.createCharArray(u"\u0141");
  try {
    static_cast<void>(wide.toAscii());
    FAIL() << "expected an exception";
  } catch (const NonAsciiCharInInputDataException& error) {
    EXPECT_STREQ(error.what(), "Input data can only contain ASCII characters.");
  }
}

TEST(ArrayFactoryDimensions, MustBeTwoAndAddressable) {
  for (const ArrayDimensions& bad : {ArrayDimensions{}, {3}, {huge, 2}, {std::size_t{1} << 32, 1U << 31, 8}})
    for (const ArrayType type : {ArrayType::DOUBLE, ArrayType::INT8, ArrayType::STRING, ArrayType::CELL})
      EXPECT_THROW(static_cast<void>(factory.createArray(type, bad)), InvalidDimensionsException);
  EXPECT_EQ(factory.createArray(ArrayType::CELL, {huge, 0}).getNumberOfElements(), 0U);
}

TEST(ArrayFactoryElements, MustFillTheDimensionsExactly) {
  const std::vector<double> three{1, 2, 3};
  const auto make = [&](std::size_t columns) {
    return factory.createArray<double>({1, columns}, three.begin(), three.end());
  };
  EXPECT_EQ(make(3)[2], 3.0);
  EXPECT_THROW(static_cast<void>(make(2)), InvalidElementCountException);
  EXPECT_THROW(static_cast<void>(make(4)), InvalidElementCountException);
  EXPECT_THROW(static_cast<void>(factory.createCellArray({2, 2}, Array(), Array())),
               InvalidElementCountException);
  EXPECT_THROW(static_cast<void>(factory.createCellArray({1, 1}, std::vector<Array>(2))),
               InvalidElementCountException);
}

TEST(ArrayFactoryData, IsCopiedFromMemoryOfTheRightSize) {
  const std::vector<std::uint16_t> source{1, 2, 65535};
  const auto make = [&](ArrayType type, std::size_t bytes) {
    return factory.createArrayWithData(type, {1, 3}, source.data(), bytes);
  };
  EXPECT_EQ(make(ArrayType::UINT16, 6), Array(factory.createArray<std::uint16_t>({1, 3}, {1, 2, 65535})));
  EXPECT_THROW(static_cast<void>(make(ArrayType::UINT16, 5)), InvalidElementCountException);
  EXPECT_THROW(static_cast<void>(make(ArrayType::STRING, 6)), InvalidArrayTypeException);
  EXPECT_THROW(static_cast<void>(make(ArrayType::CELL, 6)), InvalidArrayTypeException);
  EXPECT_THROW(static_cast<void>(make(ArrayType{25}, 6)), InvalidArrayTypeException);
  EXPECT_EQ(factory.createArrayWithData(ArrayType::UINT8, {1, 0}, nullptr, 0).getDimensions(),
            (ArrayDimensions{1, 0}));
}

TEST(ArrayFactoryData, BecomesTrueForEveryByteButZero) {
  const std::uint8_t bytes[] = {0, 1, 2, 255};
  const Array array = factory.createArrayWithData(ArrayType::LOGICAL, {1, 4}, bytes, sizeof bytes);
  EXPECT_EQ(array, Array(factory.createArray<bool>({1, 4}, {false, true, true, true})));
}
