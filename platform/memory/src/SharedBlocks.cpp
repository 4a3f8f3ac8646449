#include "SharedBlocks.hpp"

#include <iterator>

#include "kestrel/callbacks/HeldOverFork.hpp"
#include "kestrel/memory/Blocks.hpp"

namespace kestrel::memory {

/// Gives the block back when nobody holds it any more.
struct SharedBlocks::Holder {
  Holder() = default;
  ~Holder() {
    if (block.begin == nullptr) return;
    const bool reusable = shared().remove(bytes());  // first: the next block may begin at this address
    block.descriptor < 0 ? release(block.begin, capacity) : releaseMappable(block, capacity, reusable);
  }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

  [[nodiscard]] const std::uint8_t* bytes() const { return static_cast<const std::uint8_t*>(block.begin); }

  MappableBlock block;
  std::size_t capacity = 0;
};

SharedBlocks& SharedBlocks::shared() {
  static auto* const blocks = callbacks::makeHeldOverFork<SharedBlocks>();
  return *blocks;
}

SharedBytes SharedBlocks::add(MappableBlock block, std::size_t size, std::size_t capacity) {
  const auto holder = std::make_shared<Holder>();
  const callbacks::MutexLock lock(_mutex);
  Entry& entry = _entries[static_cast<const std::uint8_t*>(block.begin)];
  // From here on nothing fails.
  holder->block = block;
  holder->capacity = capacity;
  SharedBytes owner(holder, holder->bytes());
  entry.size = size;
  entry.descriptor = block.descriptor;
  entry.owner = owner;
  return owner;
}

Frozen SharedBlocks::find(const std::uint8_t* data, std::size_t size) {
  const callbacks::MutexLock lock(_mutex);
  const auto behind = _entries.upper_bound(data);
  if (behind == _entries.begin()) return {};
  const auto& [begin, entry] = *std::prev(behind);
  const auto offset = static_cast<std::size_t>(data - begin);
  if (offset > entry.size || size > entry.size - offset) return {};
  return {entry.owner.lock(), entry.size, entry.descriptor};
}

bool SharedBlocks::remove(const std::uint8_t* block) noexcept {
  const callbacks::MutexLock lock(_mutex);
  const auto entry = _entries.extract(block);
  return entry.empty() || entry.mapped().reusable;
}

void SharedBlocks::keepFromReuse(const std::uint8_t* block) noexcept {
  const callbacks::MutexLock lock(_mutex);
  const auto entry = _entries.find(block);
  if (entry != _entries.end()) entry->second.reusable = false;
}

}  // namespace kestrel::memory
