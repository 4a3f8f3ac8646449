#include "BlockCache.hpp"

#include <gmock/gmock.h>

#include "Mapping.hpp"
#include "kestrel/memory/Blocks.hpp"

namespace kestrel::memory {
namespace {

using testing::ElementsAre;
using namespace std::chrono_literals;

/// Blocks that are numbers only.
class BlockCacheTest : public testing::Test {
 protected:
  void keep(std::uintptr_t number, std::size_t capacity, std::chrono::seconds at) {
    _cache.keep({reinterpret_cast<void*>(number), capacity}, Time(at), _surplus);
  }
  std::uintptr_t take(std::size_t capacity) {
    return reinterpret_cast<std::uintptr_t>(_cache.take(capacity).pages);
  }
  /// The numbers of those that had to go since it was asked last.
  std::vector<std::uintptr_t> gone() {
    std::vector<std::uintptr_t> numbers;
    for (const auto& block : std::exchange(_surplus, {}))
      numbers.push_back(reinterpret_cast<std::uintptr_t>(block.pages));
    return numbers;
  }

  using Time = BlockCache::Clock::time_point;
  BlockCache _cache{100};
  BlockCache::Blocks _surplus;
};

TEST_F(BlockCacheTest, GivesTheNewestBlockOfACapacityAndDropsTheOldestOfAll) {
  keep(1, 20, 1s), keep(2, 40, 2s), keep(3, 20, 3s);
  EXPECT_EQ(take(30), 0U) << "none of that capacity";
  EXPECT_EQ(take(20), 3U);
  keep(3, 20, 4s), keep(4, 30, 5s);
  EXPECT_THAT(gone(), ElementsAre(1));
  EXPECT_EQ(_cache.kept(), 90U);
  _cache.setLimit(50, _surplus);
  EXPECT_THAT(gone(), ElementsAre(2));
  _cache.expire(Time(5s), _surplus);
  EXPECT_THAT(gone(), ElementsAre(3)) << "the other one was used at that very time";
  EXPECT_EQ(take(30), 4U);
  EXPECT_EQ(take(30), 0U);
  EXPECT_EQ(_cache.kept(), 0U);
}

TEST(BlockCapacity, IsAtMostAQuarterMoreOrWholeHugePages) {
  for (std::size_t size = leastKept; size < std::size_t{1} << 33; size += size / 7 + 1) {
    const std::size_t capacity = BlockCache::capacityFor(size);
    EXPECT_GE(capacity, size);
    EXPECT_EQ(capacity % (size > hugePageSize ? hugePageSize : pageSize), 0U) << size;
    EXPECT_LT(capacity - size, std::max(size / 4, size > hugePageSize ? hugePageSize : 0)) << size;
    EXPECT_EQ(BlockCache::capacityFor(capacity), capacity);
  }
}

}  // namespace
}  // namespace kestrel::memory
