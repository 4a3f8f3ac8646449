#pragma once

#include <cstddef>

namespace kestrel::memory {

inline constexpr std::size_t pageSize = std::size_t{4} << 10;
inline constexpr std::size_t hugePageSize = std::size_t{2} << 20;

/// Fresh pages of the system; those of a huge page and more begin on one. The size is a multiple of a page.
/// Null where there are none.
[[nodiscard]] void* mapPages(std::size_t size) noexcept;
void unmapPages(void* pages, std::size_t size) noexcept;

/// Pages that other processes can map by the descriptor, for reading only; their size is fixed.
struct MappablePages {
  void* pages = nullptr;  ///< null where there are none
  int descriptor = -1;
};
[[nodiscard]] MappablePages mapMappable(std::size_t size) noexcept;

}  // namespace kestrel::memory
