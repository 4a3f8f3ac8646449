#include "transports/ipc/CrossingBlocks.hpp"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <kestrel/memory/Blocks.hpp>
#include <new>

namespace kestrel::streams {

namespace {

std::atomic<std::size_t> crossing{0};

/// What is left of it with k consumers that take nothing, each with as many as it gets, is 4 / (k + 4).
bool admits(std::size_t copies) {
  constexpr std::size_t leftForEachTaken = 4;
  return crossing + leftForEachTaken * copies < mostCrossing;
}

/// Counted as long as it is held.
memory::SharedBytes counted(memory::SharedBytes owner) {
  const auto* const bytes = owner.get();
  ++crossing;
  return {bytes, [owner = std::move(owner)](const std::uint8_t*) mutable {
            owner.reset();
            --crossing;
          }};
}

}  // namespace

memory::Frozen copyToCross(std::span<const std::uint8_t> bytes, std::size_t copies) {
  if (!admits(copies)) return {};
  try {
    auto block = memory::Buffer::mappable(std::max(bytes.size(), memory::leastKept));
    std::memcpy(block.data(), bytes.data(), bytes.size());
    const auto* const begin = block.data();
    block.freeze();
    auto frozen = memory::ownerOf(begin, 1);
    if (frozen.owner) frozen.owner = counted(std::move(frozen.owner));
    return frozen;
  } catch (const std::bad_alloc&) {
    return {};
  }
}

}  // namespace kestrel::streams
