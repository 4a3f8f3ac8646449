#include "kestrel/memory/Blocks.hpp"

#include <unistd.h>

#include <atomic>
#include <exception>
#include <limits>
#include <new>
#include <thread>

#include "BlockCache.hpp"
#include "MappableBlocks.hpp"
#include "Mapping.hpp"
#include "Poison.hpp"
#include "kestrel/callbacks/HeldOverFork.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"

namespace kestrel::memory {

namespace {

using Block = BlockCache::Block;
using Clock = BlockCache::Clock;
using namespace std::chrono_literals;

constexpr auto longestIdle = 5s;
constexpr auto sweepInterval = 1s;

std::atomic<std::size_t> mappableBlocks{0};  // that there are, kept ones too
// This process is the child of one whose mappable blocks it shares: it must not use them again.
std::atomic<bool> forked{false};

void unmap(const Block& block) noexcept {
  unmapPages(unpoisoned(block.pages, block.capacity), block.capacity);
  if (!block.mappable()) return;
  ::close(block.descriptor);
  --mappableBlocks;
}

/// The blocks that the process keeps, and the thread that gives back what lies idle, which exists only while
/// there is something.
class Store {
 public:
  static Store& shared() {
    static auto* const store = callbacks::makeHeldOverFork<Store>();
    return *store;
  }

  void beforeFork() KESTREL_UNCHECKED { _mutex.lock(); }
  void afterFork() KESTREL_UNCHECKED { _mutex.unlock(); }
  void afterForkInChild() KESTREL_UNCHECKED {
    Surplus surplus;  // all, for the thread that would give it back has stayed behind
    _cache.expire(Clock::time_point::max(), surplus.blocks);
    forked = true;
    _sweeping = false;
    _mutex.unlock();
  }

  Block take(std::size_t capacity, bool mappable) {
    const callbacks::MutexLock lock(_mutex);
    return _cache.take(capacity, mappable);
  }

  /// Returns false where it must not be kept. Throws where there is no memory for the books, or no thread to
  /// look after it.
  bool keep(Block block) {
    Surplus surplus;
    const callbacks::MutexLock lock(_mutex);
    if (block.capacity > _cache.limit()) return false;
    if (!_sweeping) startSweeping();
    _cache.keep(block, Clock::now(), surplus.blocks);
    return true;
  }

  void setLimit(std::size_t bytes) {
    Surplus surplus;
    const callbacks::MutexLock lock(_mutex);
    _cache.setLimit(bytes, surplus.blocks);
  }

  /// Gives everything back that was not used since that time.
  void giveBack(Clock::time_point unusedSince) {
    Surplus surplus;
    const callbacks::MutexLock lock(_mutex);
    _cache.expire(unusedSince, surplus.blocks);
  }

  std::size_t kept() {
    const callbacks::MutexLock lock(_mutex);
    return _cache.kept();
  }

  std::size_t limit() {
    const callbacks::MutexLock lock(_mutex);
    return _cache.limit();
  }

 private:
  /// What goes back to the system: without the lock, for that takes its time.
  struct Surplus {
    Surplus() = default;
    ~Surplus() {
      for (const Block& block : blocks) unmap(block);
    }
    Surplus(const Surplus&) = delete;
    Surplus& operator=(const Surplus&) = delete;

    BlockCache::Blocks blocks;
  };

  void startSweeping() KESTREL_REQUIRES(_mutex) {
    std::thread([this] {
      do {
        std::this_thread::sleep_for(sweepInterval);
        giveBack(Clock::now() - longestIdle);
      } while (!endSweeping());
    }).detach();
    _sweeping = true;
  }

  /// Unless something is kept.
  bool endSweeping() {
    const callbacks::MutexLock lock(_mutex);
    _sweeping = _cache.kept() > 0;
    return !_sweeping;
  }

  callbacks::Mutex _mutex;
  BlockCache _cache KESTREL_GUARDED_BY(_mutex){defaultLimit};
  bool _sweeping KESTREL_GUARDED_BY(_mutex) = false;  // the thread is there
};

Block fresh(std::size_t capacity, bool mappable) {
  if (!mappable) return {mapPages(capacity), capacity};
  if (mappableBlocks >= mostMappable) return {};
  const MappablePages made = mapMappable(capacity);
  if (made.pages != nullptr) ++mappableBlocks;
  return {made.pages, capacity, made.descriptor};
}

Block take(std::size_t size, bool mappable) {
  if (size > std::numeric_limits<std::size_t>::max() / 4) throw std::bad_alloc();
  const std::size_t capacity = BlockCache::capacityFor(size);
  Block block = Store::shared().take(capacity, mappable);
  if (block.pages == nullptr) block = fresh(capacity, mappable);
  if (block.pages == nullptr) {  // what is kept may be what is missing
    Store::shared().giveBack(Clock::time_point::max());
    block = fresh(capacity, mappable);
  }
  if (block.pages == nullptr) throw std::bad_alloc();
  unpoisoned(block.pages, size);
  return block;
}

void keep(const Block& block) noexcept {
  poison(block.pages, block.capacity);
  try {
    if (Store::shared().keep(block)) return;
  } catch (const std::exception&) {  // then it is not kept
  }
  unmap(block);
}

}  // namespace

void* allocate(std::size_t size) {
  return size < leastKept ? ::operator new(size) : take(size, false).pages;
}

void release(void* block, std::size_t size) noexcept {
  if (size < leastKept) return ::operator delete(block);
  keep({block, BlockCache::capacityFor(size)});
}

MappableBlock allocateMappable(std::size_t size) {
  const Block block = take(size, true);
  return {block.pages, block.descriptor};
}

void releaseMappable(MappableBlock block, std::size_t size, bool reusable) noexcept {
  const Block freed{block.begin, BlockCache::capacityFor(size), block.descriptor};
  reusable && !forked ? keep(freed) : unmap(freed);
}

std::size_t mappable() noexcept {
  return mappableBlocks;
}

std::size_t kept() noexcept {
  return Store::shared().kept();
}

std::size_t limit() noexcept {
  return Store::shared().limit();
}

void setLimit(std::size_t bytes) noexcept {
  Store::shared().setLimit(bytes);
}

}  // namespace kestrel::memory
