#pragma once

#include <cstddef>

namespace kestrel::memory {

/// How many blocks there are at most that other processes can map, for each has a descriptor open.
inline constexpr std::size_t mostMappable = 512;

/// A block that other processes can map, for reading.
struct MappableBlock {
  void* begin = nullptr;
  int descriptor = -1;  ///< open as long as the block is
};

/// As allocate() and release(), with a descriptor. Throws std::bad_alloc where the system gives none.
[[nodiscard]] MappableBlock allocateMappable(std::size_t size);
void releaseMappable(MappableBlock block, std::size_t size) noexcept;

}  // namespace kestrel::memory
