#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>

#include "Codec.hpp"

// Counts what this program has on the heap, so that a test can tell the most that was there at a time.

namespace {

std::atomic<std::size_t> live = 0;
std::atomic<std::size_t> peak = 0;

void* counted(void* block) {
  if (block == nullptr) throw std::bad_alloc();
  const std::size_t now = live += malloc_usable_size(block);
  peak = std::max<std::size_t>(peak, now);
  return block;
}

void release(void* block) noexcept {
  live -= malloc_usable_size(block);
  std::free(block);
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  return counted(std::malloc(size));
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
  release(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
  release(block);
}

using namespace kestreldata;

namespace {

const Codec codec;
constexpr std::size_t million = 1'000'000;

/// The most memory that decoding needs at a time, in bytes; an encoding that is refused counts like any
/// other.
std::size_t mostMemoryFor(std::span<const std::uint8_t> encoding, bool isSound) {
  const std::size_t before = live;
  peak = before;
  if (isSound) {
    EXPECT_NO_THROW((void)codec.decode(encoding));
  } else {
    EXPECT_THROW((void)codec.decode(encoding), SerializationException);
  }
  return peak - before;
}

}  // namespace

TEST(Decoding, OfContradictoryCountsCostsNextToNothing) {
  std::vector<std::uint8_t> cells{8, 4};  // type double
  for (std::size_t i = 0; i < million; ++i) cells.insert(cells.end(), {8 << 3 | 2, 0});
  std::vector<std::uint8_t> lengths{8, 4, 7 << 3 | 2, 0xC0, 0x84, 0x3D};
  lengths.resize(lengths.size() + million);
  std::vector<std::uint8_t> nested;
  for (int depth = 0; depth < 10'000; ++depth) nested.insert(nested.end(), {8 << 3 | 2, 0xFF, 0xFF, 0x7F});
  for (const auto& encoding : {cells, lengths, nested}) EXPECT_LT(mostMemoryFor(encoding, false), 10'000U);
}

TEST(Decoding, OfManySmallPartsStaysWithinWhatIsCountedForThem) {
  const auto& f = codec.factory;
  const std::vector<Array> scalars(million / 10, f.createScalar(1.0));
  const auto bound = [](const Array& array, std::size_t perElement) {
    const auto bytes = codec.encode(array);
    EXPECT_LT(mostMemoryFor(bytes, true), 2 * bytes.size() + perElement * array.getNumberOfElements());
  };
  bound(f.createArray(ArrayType::CELL, {1, million / 10}), 320);
  bound(f.createCellArray({1, scalars.size()}, scalars), 320);
  bound(f.createArray(ArrayType::STRING, {1, million}), 64);
}

TEST(Encoding, RefusesMorePartsThanADecoderBuilds) {
  const auto& f = codec.factory;
  const std::size_t most = maxStructureBytes / 320;
  const auto cells = [&](std::size_t count) {
    return codec.context.convertToProtobuf(f.createCellArray({1, count}, std::vector<Array>(count)));
  };
  EXPECT_NO_THROW((void)cells(most));
  EXPECT_THROW((void)cells(most + 1), SerializationException);
  std::vector<std::uint8_t> bytes{8, 24, 16, 1, 24, 0xB4, 0xE6, 0xCC, 1};  // a cell array of most + 1
  for (std::size_t i = 0; i <= most; ++i) bytes.insert(bytes.end(), {8 << 3 | 2, 2, 8, 4});
  EXPECT_LT(mostMemoryFor(bytes, false), 10'000U);
}
