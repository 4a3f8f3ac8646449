#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <map>
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
  };

  explicit BlockCache(std::size_t limit) : _limit(limit) {}

  /// Of how many bytes a block of that size is: a multiple of a page, a quarter more at the most, or of a
  /// huge page, if it is larger than one.
  [[nodiscard]] static std::size_t capacityFor(std::size_t size) noexcept;

  /// The block of exactly that capacity that was kept last; null if there is none.
  [[nodiscard]] void* take(std::size_t capacity);
  /// Keeps a block. Adds to `surplus` what must go for it, which may be itself. Throws std::bad_alloc, and
  /// does not keep it then.
  void keep(Block block, Clock::time_point now, std::vector<Block>& surplus);
  /// Adds to `surplus` what was not used since that time.
  void expire(Clock::time_point before, std::vector<Block>& surplus);
  void setLimit(std::size_t limit, std::vector<Block>& surplus);

  [[nodiscard]] std::size_t kept() const { return _kept; }
  [[nodiscard]] std::size_t limit() const { return _limit; }

 private:
  struct Kept {
    Block block;
    Clock::time_point since;
  };
  using Ages = std::list<Kept>;  // the oldest first

  void shrinkTo(std::size_t bytes, std::vector<Block>& surplus);
  void dropOldest(std::vector<Block>& surplus);

  Ages _ages;
  std::map<std::size_t, std::vector<Ages::iterator>> _byCapacity;  // the oldest of each first
  std::size_t _kept = 0;
  std::size_t _limit;
};

}  // namespace kestrel::memory
