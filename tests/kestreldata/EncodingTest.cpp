#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <span>
#include <string>
#include <vector>

#include "Codec.hpp"

using namespace kestreldata;

namespace {

const Codec codec;

Array nested(std::size_t depth) {
  Array array;
  for (std::size_t level = 1; level < depth; ++level) array = codec.factory.createCellArray({1, 1}, array);
  return array;
}

std::vector<Array> arraysOfManyKinds() {
  const auto& f = codec.factory;
  const std::vector<double> large(1000, 1.0);
  return {Array(),
          f.createScalar(3.5),
          f.createCharArray("characters"),
          f.createScalar("request"),
          f.createArray<std::uint8_t>({1, 40}),
          f.createArray<std::int16_t>({2, 1, 3}),
          f.createCellArray({1, 3}, f.createScalar("send"), f.createScalar(1.0), f.createScalar("")),
          f.createArray<double>({10, 100}, large.begin(), large.end()),
          f.createCellArray({1, 0}),
          nested(64)};
}

/// Where a run of bytes of that value, at least as long as the payload, begins in the encoding.
std::size_t offsetOfRun(const std::vector<std::uint8_t>& bytes, std::uint8_t value, std::size_t length) {
  const auto run = std::search_n(bytes.begin(), bytes.end(), static_cast<long>(length), value);
  return static_cast<std::size_t>(run - bytes.begin());
}

}  // namespace

TEST(Encoding, NoProperPrefixDecodes) {
  for (const Array& array : arraysOfManyKinds()) {
    const auto bytes = codec.encode(array);
    EXPECT_EQ(codec.decode(bytes), array);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
      // A copy of its own, so that reading past its end is noticed.
      const std::vector<std::uint8_t> prefix(bytes.begin(), bytes.begin() + static_cast<long>(length));
      EXPECT_THROW(static_cast<void>(codec.decode(prefix)), SerializationException)
          << length << " of " << bytes.size() << " bytes of " << testing::PrintToString(array);
    }
  }
}

TEST(Encoding, CarriesTheEndMarkOnceAndLast) {
  const Array inner = codec.factory.createScalar("inner");
  const auto outer = codec.encode(codec.factory.createCellArray({1, 1}, inner));
  const auto innerBytes = codec.encode(inner);
  EXPECT_EQ(std::search(outer.begin(), outer.end(), innerBytes.end() - 5, innerBytes.end()), outer.end() - 5);
}

TEST(Encoding, StartsLargePayloadsAtMultiplesOf64) {
  const auto& f = codec.factory;
  const auto pattern = [&](std::size_t size, std::uint8_t value) {
    const std::vector<std::uint8_t> bytes(size, value);
    return f.createArrayWithData(ArrayType::UINT8, {1, size}, bytes.data(), size);
  };
  const Array large = pattern(100'000, 0xAB);
  const Array other = pattern(20'000, 0xCD);
  for (const Array& array : std::vector<Array>{
           large, f.createCellArray({1, 3}, f.createScalar("send"), large, f.createScalar("id")),
           f.createCellArray({4, 1}, other, f.createCellArray({1, 1}, other), f.createScalar("x"), large),
           f.createCellArray({1, 2}, f.createCellArray({1, 2}, f.createScalar("tag"), large), other)}) {
    const auto bytes = codec.encode(array);
    EXPECT_EQ(offsetOfRun(bytes, 0xAB, 100'000) % 64, 0U);
    const std::size_t offset = offsetOfRun(bytes, 0xCD, 20'000);
    EXPECT_EQ(offset == bytes.size() ? 0 : offset % 64, 0U);
    EXPECT_EQ(codec.decode(bytes), array);
  }
}

TEST(Encoding, OfNestedCellsEndsAtTheDepthTheDecoderTakes) {
  const Array deepest = nested(maxNestingDepth);
  EXPECT_EQ(codec.decode(codec.encode(deepest)), deepest);
  EXPECT_THROW(static_cast<void>(codec.encode(nested(maxNestingDepth + 1))), SerializationException);
}

TEST(Encoding, RefusesWhatTheParserCouldNotCount) {
  // Shared storage: 2,100 cells of 1 MiB take up 1 MiB of memory.
  const Array mebibyte = codec.factory.createArray<std::uint8_t>({1, 1U << 20});
  const auto cellsOf = [&](std::size_t count) {
    return codec.factory.createCellArray({1, count}, std::vector<Array>(count, mebibyte));
  };
  EXPECT_THROW(static_cast<void>(codec.context.convertToProtobuf(cellsOf(2100))), SerializationException);
  EXPECT_THROW(static_cast<void>(codec.context.convertToProtobuf(cellsOf(2048))), SerializationException);
  EXPECT_LT(codec.context.convertToProtobuf(cellsOf(2047))->ByteSizeLong(), std::size_t{1} << 31);
}

TEST(Encoding, RefusesAnArrayWhoseHeadersAloneTakeItPastTheLimit) {
  const Array part = codec.factory.createArray<std::uint8_t>({1, (1U << 20) - 10});
  const Array array = codec.factory.createCellArray({1, 2048}, std::vector<Array>(2048, part));
  EXPECT_THROW(static_cast<void>(codec.context.convertToProtobuf(array)), SerializationException);
}

TEST(Decoding, TakesTheParsedPayloadOverWithoutCopyingIt) {
  auto message = codec.context.createKESTREL_Array();
  const auto bytes = codec.encode(codec.factory.createArray<double>({1, 1000}));
  ASSERT_TRUE(message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
  const void* const parsed = message->payload().data();
  const TypedArray<double> array(codec.context.convertFromProtobuf(std::move(message)));
  EXPECT_EQ(static_cast<const void*>(array.begin()), parsed);
}

TEST(Encoding, IsThatOfTheProtobufMessage) {
  for (const Array& array : arraysOfManyKinds()) {
    const auto bytes = codec.encode(array);
    KESTREL_Array message;
    ASSERT_TRUE(message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
    const std::string again = message.SerializeAsString();
    EXPECT_EQ(std::vector<std::uint8_t>(again.begin(), again.end()), bytes) << testing::PrintToString(array);
  }
}

TEST(Encoding, WritesNothingWhereThereIsTooLittleRoom) {
  const auto message = codec.context.convertToProtobuf(codec.factory.createScalar(1.0));
  std::vector<std::uint8_t> bytes(message->ByteSizeLong(), 0xEE);
  const auto untouched = bytes;
  for (const int size : {-1, 0, static_cast<int>(bytes.size()) - 1})
    EXPECT_FALSE(message->SerializeToArray(bytes.data(), size));
  EXPECT_EQ(bytes, untouched);
}
