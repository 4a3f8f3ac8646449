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

/// How many there are, kept ones too.
[[nodiscard]] std::size_t mappable() noexcept;

/// As allocate() and release(), with a descriptor; what is not reusable goes back to the system at once.
/// Throws std::bad_alloc where the system gives none.
[[nodiscard]] MappableBlock allocateMappable(std::size_t size);
void releaseMappable(MappableBlock block, std::size_t size, bool reusable = true) noexcept;

}  // namespace kestrel::memory
