#include "Codec.hpp"

using namespace kestreldata;

static const ArrayFactory factory;
static constexpr std::size_t huge = std::numeric_limits<std::size_t>::max();

TEST(ArrayFactory, MakesAStringScalarOrARowOfCharactersOfText) {
  const TypedArray<optional<String>> scalar = factory.createScalar("name");
  const CharArray row = factory.createCharArray("name");
  EXPECT_EQ(scalar.getDimensions(), (ArrayDimensions{1, 1}));
  EXPECT_EQ(castToString(scalar[0]), "name");
  EXPECT_EQ(row.getDimensions(), (ArrayDimensions{1, 4}));
  EXPECT_EQ(row.toAscii(), "name");
  EXPECT_EQ(row.toUTF16(), u"name");
  EXPECT_EQ(factory.createCharArray("").getDimensions(), (ArrayDimensions{1, 0}));
}

TEST(ArrayFactory, RefusesTextBeyondAsciiWhereItIsNarrow) {
  EXPECT_THROW((void)factory.createScalar("caf\xc3\xa9"), NonAsciiCharInInputDataException);
  EXPECT_THROW((void)factory.createCharArray("\x80"), NonAsciiCharInInputDataException);
  EXPECT_EQ(factory.createCharArray("\x7f").toAscii(), "\x7f");
  EXPECT_THROW((void)factory.createCharArray(u"\u0141").toAscii(), NonAsciiCharInInputDataException);
}

TEST(ArrayFactory, TakesTwoDimensionsOrMoreThatAreAddressable) {
  for (const ArrayDimensions& bad : {ArrayDimensions{}, {3}, {huge, 2}, {std::size_t{1} << 32, 1U << 31, 8}})
    for (const ArrayType type : {ArrayType::DOUBLE, ArrayType::INT8, ArrayType::STRING, ArrayType::CELL})
      EXPECT_THROW((void)factory.createArray(type, bad), InvalidDimensionsException);
  EXPECT_EQ(factory.createArray(ArrayType::CELL, {huge, 0}).getNumberOfElements(), 0U);
}

TEST(ArrayFactory, TakesElementsThatFillTheDimensionsExactly) {
  for (const std::size_t columns : {2U, 4U}) {
    EXPECT_THROW((void)factory.createArray<double>({1, columns}, {1, 2, 3}), InvalidElementCountException);
    EXPECT_THROW((void)factory.createCellArray({1, columns}, std::vector<Array>(3)),
                 InvalidElementCountException);
  }
  const std::uint16_t source[] = {1, 2, 65535};
  const auto make = [&](ArrayType type, std::size_t bytes) {
    return factory.createArrayWithData(type, {1, 3}, source, bytes);
  };
  EXPECT_EQ(make(ArrayType::UINT16, 6), Array(factory.createArray<std::uint16_t>({1, 3}, {1, 2, 65535})));
  EXPECT_THROW((void)make(ArrayType::UINT16, 5), InvalidElementCountException);
  for (const auto type : {ArrayType::STRING, ArrayType::CELL, ArrayType{25}})
    EXPECT_THROW((void)make(type, 6), InvalidArrayTypeException);
}

TEST(ArrayFactory, TakesEveryByteButZeroForTrue) {
  const std::uint8_t bytes[] = {0, 1, 2, 255};
  const Array array = factory.createArrayWithData(ArrayType::LOGICAL, {1, 4}, bytes, sizeof bytes);
  EXPECT_EQ(array, Array(factory.createArray<bool>({1, 4}, {false, true, true, true})));
}
