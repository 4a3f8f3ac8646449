#include "Codec.hpp"

using namespace kestreldata;

static const ArrayFactory factory;
static constexpr std::size_t huge = std::numeric_limits<std::size_t>::max();

TEST(ArrayFactory, MakesAStringScalarOrARowOfCharactersOfAsciiText) {
  EXPECT_EQ(castToString(factory.createScalar("name")[0]), "name");
  EXPECT_THROW((void)castToString(factory.createScalar(optional<String>())[0]), MissingStringException);
  const CharArray row = factory.createCharArray("name\x7f");
  EXPECT_EQ(row.getDimensions(), (ArrayDimensions{1, 5}));
  EXPECT_EQ(row.toAscii(), "name\x7f");
  EXPECT_THROW((void)factory.createScalar("caf\xc3\xa9"), NonAsciiCharInInputDataException);
  EXPECT_THROW((void)factory.createCharArray("\x80"), NonAsciiCharInInputDataException);
  EXPECT_THROW((void)factory.createCharArray(u"\u0141").toAscii(), NonAsciiCharInInputDataException);
}

TEST(ArrayFactory, TakesTwoDimensionsOrMoreThatAreAddressable) {
  for (const ArrayDimensions& bad : {ArrayDimensions{}, {3}, {huge, 2}, {std::size_t{1} << 32, 1U << 31, 8}})
    for (const ArrayType type : {ArrayType::DOUBLE, ArrayType::INT8, ArrayType::STRING, ArrayType::CELL})
      EXPECT_THROW((void)factory.createArray(type, bad), InvalidDimensionsException);
}

TEST(ArrayFactory, TakesElementsThatFillTheDimensionsExactly) {
  for (const std::size_t columns : {2U, 4U})
    EXPECT_THROW((void)factory.createArray<double>({1, columns}, {1, 2, 3}), InvalidElementCountException);
  const std::uint16_t source[] = {2, 255, 65535};
  const auto make = [&](ArrayType type, std::size_t bytes) {
    return factory.createArrayWithData(type, {1, 3}, source, bytes);
  };
  EXPECT_EQ(make(ArrayType::UINT16, 6), Array(factory.createArray<std::uint16_t>({1, 3}, {2, 255, 65535})));
  EXPECT_EQ(make(ArrayType::LOGICAL, 3), Array(factory.createArray<bool>({1, 3}, {true, false, true})))
      << "a byte that is not 0 is true";
  EXPECT_THROW((void)make(ArrayType::UINT16, 5), InvalidElementCountException);
  for (const auto type : {ArrayType::STRING, ArrayType::CELL, ArrayType{25}})
    EXPECT_THROW((void)make(type, 6), InvalidArrayTypeException);
}
