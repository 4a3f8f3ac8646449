#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <map>
#include <utility>
#include <vector>

namespace kestrel::memory {

/// Which blocks are kept, by capacity and by age. A plain object: it neither maps nor unmaps them, and time
/// is told to it.
class BlockCache {
 public:
  using Clock = std::chrono::steady_clock;

  struct Block {
    void* pages = nullptr;
    std::size_t capacity = 0;
    int descriptor = -1;        ///< by which other processes can map it; -1: they cannot
    Clock::time_point since{};  ///< when it was kept

    [[nodiscard]] bool mappable() const { return descriptor >= 0; }
  };
  using Blocks = std::list<Block>;  // which go from one to another without an allocation

  explicit BlockCache(std::size_t limit) : _limit(limit) {}

  /// Of how many bytes a block of that size is: a multiple of a page, a quarter more at the most, or of a
  /// huge page, if it is larger than one.
  [[nodiscard]] static std::size_t capacityFor(std::size_t size) noexcept;

  /// The block of exactly that capacity and kind that was kept last; without pages if there is none.
  [[nodiscard]] Block take(std::size_t capacity, bool mappable = false);
  /// Keeps a block of at most the limit. Adds to `surplus` what must go for it. Throws std::bad_alloc, and
  /// does not keep it then.
  void keep(Block block, Clock::time_point now, Blocks& surplus);
  /// Adds to `surplus` what was not used since that time.
  void expire(Clock::time_point before, Blocks& surplus) noexcept;
  void setLimit(std::size_t limit, Blocks& surplus) noexcept;

  [[nodiscard]] std::size_t kept() const { return _kept; }
  [[nodiscard]] std::size_t limit() const { return _limit; }

 private:
  using Kind = std::pair<std::size_t, bool>;  // capacity, and whether it is mappable
  [[nodiscard]] static Kind kindOf(const Block& block) { return {block.capacity, block.mappable()}; }
  void shrinkTo(std::size_t bytes, Blocks& surplus) noexcept;
  void dropOldest(Blocks& surplus) noexcept;

  Blocks _ages;                                           // the oldest first
  std::map<Kind, std::vector<Blocks::iterator>> _byKind;  // the oldest of each first
  std::size_t _kept = 0;
  std::size_t _limit;
};

}  // namespace kestrel::memory
