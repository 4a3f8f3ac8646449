#include "transports/ipc/ForeignBlocks.hpp"

#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>

#include "transports/ipc/AccountsPage.hpp"

namespace kestrel::streams {

ForeignBlocks::~ForeignBlocks() {
  while (!_mapped.empty()) drop(_mapped.begin());
}

std::optional<std::span<const std::uint8_t>> ForeignBlocks::map(int descriptor, std::uint64_t offset,
                                                                std::uint64_t size, TimePoint now) {
  Block* const block = find(descriptor);
  if (block == nullptr || offset > block->size || size > block->size - offset) return std::nullopt;
  block->used = now;
  return std::span(block->begin + offset, size);
}

/// Moves it to the front.
ForeignBlocks::Block* ForeignBlocks::find(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return nullptr;
  const std::pair<std::uint64_t, std::uint64_t> file{status.st_dev, status.st_ino};
  const auto known = std::ranges::find(_mapped, file, &Block::file);
  if (known != _mapped.end()) {
    _mapped.splice(_mapped.begin(), _mapped, known);
    return &_mapped.front();
  }
  constexpr std::uint64_t largest = std::uint64_t{1} << 32;
  const auto size = sealedSize(descriptor);
  if (!size || *size == 0 || *size > largest) return nullptr;
  std::list<Block> mapped(1);  // all that can fail comes before the call
  void* const begin = ::mmap(nullptr, *size, PROT_READ, MAP_SHARED, descriptor, 0);
  if (begin == MAP_FAILED) return nullptr;
  mapped.front() = {file, static_cast<const std::uint8_t*>(begin), *size};
  _mapped.splice(_mapped.begin(), mapped);
  _bytes += *size;
  while (_mapped.size() > 1 && (_mapped.size() > mostMapped || _bytes > mostBytes)) drop(--_mapped.end());
  return &_mapped.front();
}

void ForeignBlocks::drop(std::list<Block>::iterator block) {
  ::munmap(const_cast<std::uint8_t*>(block->begin), block->size);
  _bytes -= block->size;
  _mapped.erase(block);
}

void ForeignBlocks::expire(TimePoint now) {
  while (!_mapped.empty() && now - _mapped.back().used > longestIdle) drop(--_mapped.end());
}

}  // namespace kestrel::streams
