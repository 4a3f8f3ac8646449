#include "transports/memory/BufferPool.hpp"

#include <bit>
#include <cstdlib>
#include <new>

namespace kestrel::streams {

static_assert((BufferPool::smallestBlock << 10) == BufferPool::largestBlock);

BufferPool& BufferPool::shared() {
  static auto* const pool = new BufferPool();  // messages may be freed while the process exits
  return *pool;
}

BufferPool::~BufferPool() {
  for (auto& blocks : _free) {
    for (std::uint8_t* block : blocks) std::free(block);
  }
}

std::uint8_t* BufferPool::acquire(std::size_t size) {
  const std::size_t capacity = capacityOf(size);
  if (size <= largestBlock) {
    const callbacks::MutexLock lock(_mutex);
    auto& blocks = _free[classOf(size)];
    if (!blocks.empty()) {
      std::uint8_t* const block = blocks.back();  // the one used last, for the caches may still hold it
      blocks.pop_back();
      _kept -= capacity;
      return block;
    }
  }
  constexpr std::size_t page = 4096;
  void* const block = std::aligned_alloc(page, capacity);
  if (block == nullptr) throw std::bad_alloc();
  return static_cast<std::uint8_t*>(block);
}

void BufferPool::release(std::uint8_t* block, std::size_t size) noexcept {
  if (size <= largestBlock) {
    const std::size_t capacity = capacityOf(size);
    const callbacks::MutexLock lock(_mutex);
    if (capacity <= _limit && _kept <= _limit - capacity) {
      try {
        _free[classOf(size)].push_back(block);
        _kept += capacity;
        return;
      } catch (const std::bad_alloc&) {  // then it is not kept
      }
    }
  }
  std::free(block);
}

std::size_t BufferPool::classOf(std::size_t size) {
  return static_cast<std::size_t>(std::countr_zero(capacityOf(size) / smallestBlock));
}

std::size_t BufferPool::capacityOf(std::size_t size) {
  if (size <= smallestBlock) return smallestBlock;
  if (size <= largestBlock) return std::bit_ceil(size);
  constexpr std::size_t page = 4096;
  return (size + page - 1) / page * page;
}

}  // namespace kestrel::streams
