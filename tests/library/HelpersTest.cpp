#include "TestTools.hpp"

namespace library_test {

using Strings = std::vector<kestreldata::optional<kestreldata::String>>;

Array strings(const Strings& elements) {
  return arrays.createArray<Strings::value_type>({1, elements.size()}, elements.begin(), elements.end());
}

TEST(KDAHelper, TakesTextFromCharsAndTheFirstString) {
  KDAHelper helper;
  using TextAndError = std::pair<std::string, std::string>;
  EXPECT_EQ(helper.kdaToString(chars("one")), TextAndError("one", ""));
  EXPECT_EQ(helper.kdaToString(strings({u"one", std::nullopt})), TextAndError("one", ""));
  EXPECT_EQ(helper.kdaToString(number(65)), TextAndError("", "NotAString"));
  EXPECT_THROW((void)helper.kdaToString(arrays.createCharArray(u"caf\u00e9")),
               kestreldata::NonAsciiCharInInputDataException);
  EXPECT_THROW((void)helper.kdaToString(strings({})), kestreldata::Exception);
  EXPECT_THROW((void)helper.kdaToString(strings({std::nullopt})), kestreldata::Exception);
}

TEST(KDAHelper, TakesRawBytesFromUnsigned8BitArraysOnly) {
  KDAHelper helper;
  const Array matrix = arrays.createArray<std::uint8_t>({2, 3}, {1, 2, 3, 4, 5, 255});
  EXPECT_EQ(helper.kdaToByteArray(matrix), (Bytes{1, 2, 3, 4, 5, 255}));
  EXPECT_TRUE(helper.kdaToByteArray(arrays.createScalar(std::int8_t{1})).empty());
}

TEST(KDAHelper, ExtendsTheFirstRowOfACellByDefaultArrays) {
  TypedArray<Array> tall = arrays.createCellArray({2, 2}, number(1), number(2), number(3), number(4));
  KDAHelper().extendArray(tall, 1);
  EXPECT_EQ(static_cast<const Array&>(tall),
            arrays.createCellArray({2, 3}, number(1), Array(), number(3), Array(), Array(), Array()));
}

}  // namespace library_test
