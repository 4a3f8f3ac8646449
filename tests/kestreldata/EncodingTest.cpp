#include <algorithm>

#include "Codec.hpp"

using namespace kestreldata;

namespace {

const Codec codec;

std::vector<Array> arraysOfManyKinds() {
  const auto& f = codec.factory;
  return {Array(),
          f.createScalar(3.5),
          f.createCharArray("characters"),
          f.createScalar("request"),
          f.createArray<std::int16_t>({2, 1, 3}),
          f.createArray<double>({10, 100}),
          f.createCellArray({1, 0}),
          f.createCellArray({1, 3}, f.createScalar("send"), f.createScalar(1.0), f.createScalar("")),
          codec.nested(64)};
}

}  // namespace

TEST(Encoding, IsThatOfTheProtobufMessageAndNoProperPrefixOfItDecodes) {
  for (const Array& array : arraysOfManyKinds()) {
    const auto bytes = codec.encode(array);
    EXPECT_EQ(codec.decode(bytes), array);
    KESTREL_Array message;
    ASSERT_TRUE(message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
    EXPECT_EQ(Codec::bytesOf(message), bytes) << testing::PrintToString(array);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
      // A copy of its own, so that reading past its end is noticed.
      const std::vector<std::uint8_t> prefix(bytes.begin(), bytes.begin() + static_cast<long>(length));
      EXPECT_THROW((void)codec.decode(prefix), SerializationException)
          << length << " of " << bytes.size() << " bytes of " << testing::PrintToString(array);
    }
  }
}

TEST(Encoding, StartsLargePayloadsAtMultiplesOf64) {
  const auto& f = codec.factory;
  const std::vector<std::uint8_t> pattern(100'000, 0xAB);
  const Array large = f.createArrayWithData(ArrayType::UINT8, {1, 100'000}, pattern.data(), pattern.size());
  const Array other = f.createArray<std::uint8_t>({1, 20'000});
  for (const Array& array : std::vector<Array>{
           large, f.createCellArray({1, 3}, f.createScalar("send"), large, f.createScalar("id")),
           f.createCellArray({4, 1}, other, f.createCellArray({1, 1}, other), f.createScalar("x"), large),
           f.createCellArray({1, 2}, f.createCellArray({1, 2}, f.createScalar("tag"), large), other)}) {
    const auto bytes = codec.encode(array);
    const auto payload = std::search_n(bytes.begin(), bytes.end(), 100'000, std::uint8_t{0xAB});
    ASSERT_NE(payload, bytes.end());
    EXPECT_EQ((payload - bytes.begin()) % 64, 0);
    EXPECT_EQ(codec.decode(bytes), array);
  }
}

TEST(Encoding, OfNestedCellsEndsAtTheDepthTheDecoderTakes) {
  const Array deepest = codec.nested(maxNestingDepth);
  EXPECT_EQ(codec.decode(codec.encode(deepest)), deepest);
  EXPECT_THROW((void)codec.encode(codec.nested(maxNestingDepth + 1)), SerializationException);
}

TEST(Encoding, RefusesWhatTheParserCouldNotCount) {
  const auto encodable = [](std::size_t count, std::size_t size) {
    // Shared storage: thousands of cells of 1 MiB take up 1 MiB of memory.
    const std::vector<Array> cells(count, codec.factory.createArray<std::uint8_t>({1, size}));
    return codec.context.convertToProtobuf(codec.factory.createCellArray({1, count}, cells));
  };
  EXPECT_LT(encodable(2047, 1U << 20)->ByteSizeLong(), std::size_t{1} << 31);
  EXPECT_THROW((void)encodable(2048, 1U << 20), SerializationException);
  EXPECT_THROW((void)encodable(2048, (1U << 20) - 10), SerializationException) << "headers count too";
}

TEST(Decoding, TakesTheParsedPayloadOverWithoutCopyingIt) {
  auto message = codec.context.createKESTREL_Array();
  const auto bytes = codec.encode(codec.factory.createArray<double>({1, 1000}));
  ASSERT_TRUE(message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
  const void* const parsed = message->payload().data();
  const TypedArray<double> array(codec.context.convertFromProtobuf(std::move(message)));
  EXPECT_EQ(static_cast<const void*>(array.begin()), parsed);
}
