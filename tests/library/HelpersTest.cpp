#include <set>

#include "TestTools.hpp"
#include "remote_connectivity/asyncio/util/UUIDAdaptor.hpp"

namespace library_test {

using Strings = std::vector<kestreldata::optional<kestreldata::String>>;

Array strings(const Strings& elements) {
  return arrays.createArray<Strings::value_type>({1, elements.size()}, elements.begin(), elements.end());
}

TEST(KDAHelper, TakesTextFromCharsAndTheFirstString) {
  KDAHelper helper;
  using TextAndError = std::pair<std::string, std::string>;
  for (const Array& array : {chars("one"), text("one"), strings({u"one", u"two", std::nullopt})}) {
    EXPECT_EQ(helper.kdaToString(array), TextAndError("one", ""));
  }
  for (const Array& array : {number(65), row({text("abc")}), Array()}) {
    EXPECT_EQ(helper.kdaToString(array), TextAndError("", "NotAString"));
  }
  EXPECT_EQ(helper.kdaToString(chars("")), TextAndError("", ""));
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
  EXPECT_EQ(helper.kdaFromByteArray({7, 0, 255}), arrays.createArray<std::uint8_t>({1, 3}, {7, 0, 255}));
}

TEST(KDAHelper, ExtendsTheFirstRowOfACellByDefaultArrays) {
  TypedArray<Array> tall = arrays.createCellArray({2, 2}, number(1), number(2), number(3), number(4));
  KDAHelper().extendArray(tall, 1);
  EXPECT_EQ(static_cast<const Array&>(tall),
            arrays.createCellArray({2, 3}, number(1), Array(), number(3), Array(), Array(), Array()));
}

TEST(UUIDAdaptor, MakesFreshTextWhoseDigitsAreAllRandom) {
  UUIDAdaptor adaptor;
  std::set<std::string> texts;
  std::set<char> versions;
  for (int i = 0; i < 2000; ++i) versions.insert(texts.insert(adaptor()).first->at(14));
  EXPECT_EQ(texts.size(), 2000U);
  EXPECT_EQ(versions.size(), 16U) << "a version was set";
  boost::uuids::uuid id{};
  for (std::uint8_t i = 0; i < 16; ++i) id.data[i] = static_cast<std::uint8_t>(0xA0 + i);
  EXPECT_EQ(adaptor.toString(id), "a0a1a2a3-a4a5-a6a7-a8a9-aaabacadaeaf");
}

}  // namespace library_test
