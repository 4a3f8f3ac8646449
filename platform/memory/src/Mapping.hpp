#pragma once

#include <cstddef>

namespace kestrel::memory {

inline constexpr std::size_t pageSize = std::size_t{4} << 10;
inline constexpr std::size_t hugePageSize = std::size_t{2} << 20;

/// Fresh pages of the system; those of a huge page and more begin on one. The size is a multiple of a page.
/// Null where there are none.
[[nodiscard]] void* mapPages(std::size_t size) noexcept;
void unmapPages(void* pages, std::size_t size) noexcept;

}  // namespace kestrel::memory
