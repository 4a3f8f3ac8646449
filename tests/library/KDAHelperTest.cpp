#include "remote_connectivity/asyncio/util/KDAHelper.hpp"

#include <gtest/gtest.h>
#include <kestreldata/SerializationContext.hpp>

#include "Wire.hpp"

namespace library_test {
namespace {

using namespace remote_connectivity::asyncio::util;
using Strings = std::vector<kestreldata::optional<kestreldata::String>>;

Array strings(const Strings& elements) {
  return arrays().createArray<kestreldata::optional<kestreldata::String>>({1, elements.size()},
                                                                          elements.begin(), elements.end());
}

struct TextCase {
  const char* name;
  Array array;
  std::string text;
  std::string error;
};

class TextOfArrays : public testing::TestWithParam<TextCase> {};

TEST_P(TextOfArrays, IsTakenFromCharsAndTheFirstString) {
  const auto [text, error] = KDAHelper().kdaToString(GetParam().array);
  EXPECT_EQ(text, GetParam().text);
  EXPECT_EQ(error, GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TextOfArrays,
    testing::Values(TextCase{"chars", chars("abc"), "abc", ""}, TextCase{"noChars", chars(""), "", ""},
                    TextCase{"oneString", text("abc"), "abc", ""},
                    TextCase{"threeStrings", strings({u"one", u"two", std::nullopt}), "one", ""},
                    TextCase{"number", number(65), "", "NotAString"},
                    TextCase{"cellOfText", row({text("abc")}), "", "NotAString"},
                    TextCase{"emptyDouble", Array(), "", "NotAString"}),
    [](const auto& info) { return info.param.name; });

TEST(KDAHelper, RefusesTextThatCannotBeRead) {
  KDAHelper helper;
  try {
    (void)helper.kdaToString(arrays().createCharArray(u"caf\u00e9"));
    FAIL() << "a character beyond 7 bits was taken";
  } catch (const kestreldata::NonAsciiCharInInputDataException& error) {
    EXPECT_STREQ(error.what(), "Input data can only contain ASCII characters.");
  }
  EXPECT_THROW((void)helper.kdaToString(strings({})), kestreldata::Exception);
  EXPECT_THROW((void)helper.kdaToString(strings({std::nullopt})), kestreldata::Exception);
}

TEST(KDAHelper, TakesRawBytesFromUnsigned8BitArraysOnly) {
  KDAHelper helper;
  const Array matrix = arrays().createArray<std::uint8_t>({2, 3}, {1, 2, 3, 4, 5, 255});
  EXPECT_EQ(helper.kdaToByteArray(matrix), (std::vector<std::uint8_t>{1, 2, 3, 4, 5, 255}));
  EXPECT_TRUE(helper.kdaToByteArray(number(1)).empty());
  EXPECT_TRUE(helper.kdaToByteArray(arrays().createScalar(std::int8_t{1})).empty());
}

TEST(KDAHelper, MakesARowOfBytes) {
  for (const std::vector<std::uint8_t>& bytes : {std::vector<std::uint8_t>{}, {7, 0, 255}}) {
    const Array array = KDAHelper().kdaFromByteArray(bytes);
    EXPECT_EQ(array.getType(), ArrayType::UINT8);
    EXPECT_EQ(array.getDimensions(), (ArrayDimensions{1, bytes.size()}));
    EXPECT_EQ(KDAHelper().kdaToByteArray(array), bytes);
  }
}

TEST(KDAHelper, DecodesWhatItEncoded) {
  const Array original = row({chars("label"), text("id"), arrays().createArray<double>({2, 2}, {1, 2, 3, 4}),
                              column({arrays().createScalar(std::uint64_t{1} << 63), Array()})});
  KDAHelper helper;
  const auto bytes = helper.kdaToProtobufBytes(original);
  EXPECT_EQ(helper.kdaFromProtobuf(bytes.data(), bytes.size()), original);
  const auto message = helper.getSerializationContext().convertToProtobuf(original);
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), message->SerializeAsString());
}

TEST(KDAHelper, NeverTakesATornEncodingForAnArray) {
  KDAHelper helper;
  const auto bytes = helper.kdaToProtobufBytes(row({text("send"), number(1), text("")}));
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_THROW((void)helper.kdaFromProtobuf(bytes.data(), size), kestreldata::Exception) << size;
  }
}

class ExtendedCell : public testing::TestWithParam<std::pair<std::size_t, std::size_t>> {};

TEST_P(ExtendedCell, KeepsItsCellsAndGainsDefaultOnes) {
  const auto [columns, added] = GetParam();
  TypedArray<Array> cell = arrays().createCellArray({1, columns});
  for (std::size_t i = 0; i < columns; ++i) cell[i] = number(static_cast<double>(i));
  KDAHelper().extendArray(cell, added);
  ASSERT_EQ(cell.getDimensions(), (ArrayDimensions{1, columns + added}));
  for (std::size_t i = 0; i < columns + added; ++i) {
    const Array element = cell[i];
    EXPECT_EQ(element, i < columns ? number(static_cast<double>(i)) : Array()) << i;
  }
}

INSTANTIATE_TEST_SUITE_P(ColumnsAndAdded, ExtendedCell,
                         testing::Values(std::pair{2, 3}, std::pair{2, 0}, std::pair{0, 3}));

TEST(KDAHelper, ExtendsTheFirstRowOfATallCell) {
  TypedArray<Array> cell = arrays().createCellArray({2, 2}, number(1), number(2), number(3), number(4));
  KDAHelper().extendArray(cell, 1);
  const Array expected =
      arrays().createCellArray({2, 3}, number(1), Array(), number(3), Array(), Array(), Array());
  EXPECT_EQ(static_cast<const Array&>(cell), expected);
}

TEST(KDAHelper, UsesTheFactoryItWasGiven) {
  const auto shared = std::make_shared<kestreldata::standalone::ArrayFactory>();
  EXPECT_EQ(&KDAHelper(shared).getFactory(), shared.get());
  KDAHelper own(nullptr);
  EXPECT_EQ(&own.getFactory(), &own.getFactory());
  EXPECT_EQ(&own.getSerializationContext(), &own.getSerializationContext());
}

}  // namespace
}  // namespace library_test
