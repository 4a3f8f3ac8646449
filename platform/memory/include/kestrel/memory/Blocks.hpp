#pragma once

#include <cstddef>

#include "kestrel/export/Export.hpp"

/// Memory for payloads. The system gives large blocks page by page, as they are touched, and takes them back
/// when they are freed; for a block that is filled once and read once that costs several times what the copy
/// costs. So blocks that are given back here are kept for the next ones, and those that are fresh lie on huge
/// pages where the system has them.
namespace kestrel::memory {

/// From this size on blocks are kept; smaller ones are the C++ library's.
inline constexpr std::size_t leastKept = std::size_t{64} << 10;

/// How much is kept for the whole process unless it is set.
inline constexpr std::size_t defaultLimit = std::size_t{256} << 20;

/// A block of that many bytes, aligned to 16 bytes, from `leastKept` on to a page. What is in it is
/// undefined. Throws std::bad_alloc. Safe from any thread.
[[nodiscard]] KESTREL_EXPORT void* allocate(std::size_t size);

/// Takes a block back that allocate() gave for that size. Safe from any thread, whichever it came from.
KESTREL_EXPORT void release(void* block, std::size_t size) noexcept;

/// Bytes that are kept now and that nobody uses. What was not used again for some 5 seconds is given back to
/// the system.
[[nodiscard]] KESTREL_EXPORT std::size_t kept() noexcept;

/// How many bytes may be kept. Over the limit, what was used least recently goes first.
[[nodiscard]] KESTREL_EXPORT std::size_t limit() noexcept;
KESTREL_EXPORT void setLimit(std::size_t bytes) noexcept;

}  // namespace kestrel::memory
