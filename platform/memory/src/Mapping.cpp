#include "Mapping.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

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

MappablePages mapMappable(std::size_t size) noexcept {
  const int file = ::memfd_create("kestrel", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  if (file < 0) return {};
  void* pages = MAP_FAILED;
  if (::ftruncate(file, static_cast<off_t>(size)) == 0) {
    pages = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  }
  // Behind our own mapping, the only one that may write.
  constexpr int seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_FUTURE_WRITE | F_SEAL_SEAL;
  if (pages != MAP_FAILED && ::fcntl(file, F_ADD_SEALS, seals) == 0) {
    if (size >= hugePageSize) ::madvise(pages, size, MADV_HUGEPAGE);
    return {pages, file};
  }
  if (pages != MAP_FAILED) ::munmap(pages, size);
  ::close(file);
  return {};
}

}  // namespace kestrel::memory
