#include "Mapping.hpp"

#include <sys/mman.h>

#include <cstdint>

namespace kestrel::memory {

namespace {

void* map(std::size_t size) noexcept {
  void* const pages = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return pages == MAP_FAILED ? nullptr : pages;
}

/// Maps more than is wanted and gives back what lies before and behind.
void* mapAligned(std::size_t size) noexcept {
  auto* const all = static_cast<std::uint8_t*>(map(size + hugePageSize));
  if (all == nullptr) return nullptr;
  const std::size_t before = -reinterpret_cast<std::uintptr_t>(all) % hugePageSize;
  if (before > 0) ::munmap(all, before);
  if (before < hugePageSize) ::munmap(all + before + size, hugePageSize - before);
  return all + before;
}

}  // namespace

void* mapPages(std::size_t size) noexcept {
  if (size < hugePageSize) return map(size);
  void* const pages = mapAligned(size);
  // Where the system has no huge pages, ordinary ones are slower and as good.
  if (pages != nullptr) ::madvise(pages, size, MADV_HUGEPAGE);
  return pages;
}

void unmapPages(void* pages, std::size_t size) noexcept {
  ::munmap(pages, size);
}

}  // namespace kestrel::memory
