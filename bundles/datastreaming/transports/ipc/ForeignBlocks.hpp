#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <optional>
#include <span>
#include <utility>

namespace kestrel::streams {

/// Blocks of memory of other processes, mapped to be read from. Senders use a block many times, so those used
/// last stay mapped. Who made a block may change what is in it at any time, so what is read twice may differ.
/// A plain object, not thread-safe.
class ForeignBlocks {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  ForeignBlocks() = default;
  ~ForeignBlocks();
  ForeignBlocks(const ForeignBlocks&) = delete;
  ForeignBlocks& operator=(const ForeignBlocks&) = delete;

  /// Those bytes of the block, until the next call; nothing if there is no memory of fixed size behind the
  /// descriptor, if it is smaller, or if it cannot be mapped.
  [[nodiscard]] std::optional<std::span<const std::uint8_t>> map(int descriptor, std::uint64_t offset,
                                                                 std::uint64_t size, TimePoint now);
  /// Lets go of what was not used for some seconds.
  void expire(TimePoint now);
  [[nodiscard]] bool empty() const { return _mapped.empty(); }

 private:
  static constexpr std::size_t mostMapped = 16;
  static constexpr std::uint64_t mostBytes = std::uint64_t{1} << 30;  // but for the one used last
  static constexpr std::chrono::seconds longestIdle{5};

  struct Block {
    std::pair<std::uint64_t, std::uint64_t> file;  // device and number
    const std::uint8_t* begin = nullptr;
    std::uint64_t size = 0;
    TimePoint used{};
  };
  [[nodiscard]] Block* find(int descriptor);
  void drop(std::list<Block>::iterator block);

  std::list<Block> _mapped;  // the one used last to the front
  std::uint64_t _bytes = 0;
};

}  // namespace kestrel::streams
