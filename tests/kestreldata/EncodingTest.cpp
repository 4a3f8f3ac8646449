#include <algorithm>

#include "Codec.hpp"
#include "kestrel/memory/Buffer.hpp"

using namespace kestreldata;

static const Codec codec;

TEST(Encoding, IsThatOfTheProtobufMessageAndNoProperPrefixOfItDecodes) {
  const auto& f = codec.factory;
  for (const Array& array : std::vector<Array>{
           Array(), f.createScalar(3.5), f.createCharArray("characters"), f.createScalar("request"),
           f.createArray<std::int16_t>({2, 1, 3}), f.createArray<double>({10, 100}),
           f.createCellArray({1, 0}), f.createCellArray({1, 2}, f.createScalar("send"), f.createScalar("")),
           codec.nested(64)}) {
    const auto bytes = codec.encode(array);
    EXPECT_EQ(codec.decode(bytes), array);
    EXPECT_EQ(Codec::bytesOf(*codec.parsed(bytes)), bytes) << testing::PrintToString(array);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
      // A copy of its own, so that reading past its end is noticed.
      const std::vector<std::uint8_t> prefix(bytes.begin(), bytes.begin() + static_cast<long>(length));
      EXPECT_THROW((void)codec.decode(prefix), SerializationException)
          << length << " of " << bytes.size() << " bytes of " << testing::PrintToString(array);
    }
  }
}

TEST(Encoding, OfNestedCellsEndsAtTheDepthTheDecoderTakes) {
  const Array deepest = codec.nested(maxNestingDepth);
  EXPECT_EQ(codec.decode(codec.encode(deepest)), deepest);
  EXPECT_THROW((void)codec.encode(codec.nested(maxNestingDepth + 1)), SerializationException);
}

TEST(Encoding, RefusesMorePartsThanADecoderBuilds) {
  const std::size_t most = maxStructureBytes / 320;
  EXPECT_NO_THROW((void)codec.encode(codec.factory.createCellArray({1, most})));
  EXPECT_THROW((void)codec.encode(codec.factory.createCellArray({1, most + 1})), SerializationException);
  std::vector<std::uint8_t> bytes{8, 24, 16, 1, 24, 0xB4, 0xE6, 0xCC, 1};  // a cell array of most + 1
  for (std::size_t i = 0; i <= most; ++i) bytes.insert(bytes.end(), {8 << 3 | 2, 2, 8, 4});
  EXPECT_THROW(codec.context.checkEncoding(bytes.data(), bytes.size()), SerializationException);
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

TEST(Encoding, LendsLargeElementsOfAFrozenBufferAndTheyAreCopiedBeforeTheyAreWritten) {
  const auto large = codec.factory.createArray<std::uint32_t>({100, 200});
  const auto decodedFrom = [](const kestrel::memory::Buffer& bytes) {
    const TypedArray<Array> cells(codec.context.decode(bytes.data(), bytes.size()));
    return TypedArray<std::uint32_t>(Array(cells[0]));
  };
  const auto liesIn = [](const auto& array, const kestrel::memory::Buffer& bytes) {
    const auto* const first = reinterpret_cast<const std::uint8_t*>(array.cbegin());
    return first >= bytes.data() && first < bytes.data() + bytes.size();
  };
  for (const auto& [cells, isLent] : {std::pair(1, true), std::pair(3, false)}) {
    const std::vector<Array> parts(static_cast<std::size_t>(cells), large);
    const auto encoded = codec.encode(codec.factory.createCellArray({1, parts.size()}, parts));
    kestrel::memory::Buffer bytes;
    bytes.append(encoded.data(), encoded.size());
    EXPECT_FALSE(liesIn(decodedFrom(bytes), bytes)) << "it may still change";
    bytes.freeze();
    auto array = decodedFrom(bytes);
    EXPECT_EQ(liesIn(array, bytes), isLent) << "a small part must not hold on to much";
    const auto other = decodedFrom(bytes);
    bytes = {};
    array[19'999] = 6U;
    EXPECT_EQ(Array(other), Array(large));
    EXPECT_NE(Array(array), Array(large));
  }
}
