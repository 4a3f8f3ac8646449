#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define KESTREL_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KESTREL_ADDRESS_SANITIZER
#endif
#endif
#ifdef KESTREL_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace kestrel::memory {

/// Lets AddressSanitizer report whoever still uses a block that is only kept.
inline void poison([[maybe_unused]] void* block, [[maybe_unused]] std::size_t size) noexcept {
#ifdef KESTREL_ADDRESS_SANITIZER
  ASAN_POISON_MEMORY_REGION(block, size);
#endif
}

inline void* unpoisoned(void* block, [[maybe_unused]] std::size_t size) noexcept {
#ifdef KESTREL_ADDRESS_SANITIZER
  ASAN_UNPOISON_MEMORY_REGION(block, size);
#endif
  return block;
}

}  // namespace kestrel::memory
