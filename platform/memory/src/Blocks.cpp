#include "kestrel/memory/Blocks.hpp"

#include <limits>
#include <new>
#include <thread>
#include <vector>

#include "BlockCache.hpp"
#include "Mapping.hpp"
#include "Poison.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"

namespace kestrel::memory {

namespace {

using Block = BlockCache::Block;
using Clock = BlockCache::Clock;
using namespace std::chrono_literals;

constexpr auto longestIdle = 5s;
constexpr auto sweepInterval = 1s;

/// The blocks that the process keeps, and the thread that gives back what lies idle, which exists only while
/// there is something. Never destroyed: memory is given back until the very end of the process.
class Store {
 public:
  static Store& shared() {
    static auto* const store = new Store;
    return *store;
  }

  void* take(std::size_t capacity) {
    const callbacks::MutexLock lock(_mutex);
    return _cache.take(capacity);
  }

  void keep(Block block) {
    change([&](std::vector<Block>& surplus) KESTREL_REQUIRES(_mutex) {
      if (!_sweeping && block.capacity <= _cache.limit()) startSweeping();
      _cache.keep(block, Clock::now(), surplus);
    });
  }

  /// Where there is no memory to do it all at once, the rest goes when blocks come.
  void setLimit(std::size_t bytes) noexcept {
    try {
      change([&](std::vector<Block>& surplus) KESTREL_REQUIRES(_mutex) { _cache.setLimit(bytes, surplus); });
    } catch (const std::bad_alloc&) {  // the limit holds all the same
    }
  }

  /// Gives everything back that was not used since that time; returns whether anything is left.
  bool giveBack(Clock::time_point unusedSince) noexcept {
    bool more = true;
    try {
      change([&](std::vector<Block>& surplus) KESTREL_REQUIRES(_mutex) {
        _cache.expire(unusedSince, surplus);
        more = _cache.kept() > 0;
      });
    } catch (const std::bad_alloc&) {  // some of it, then
    }
    return more;
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
  /// Unmapping takes its time, so it is done without the lock.
  template <class Function>
  void change(Function&& function) {
    std::vector<Block> surplus;
    const auto unmapAll = [&] {
      for (const Block& block : surplus) unmapPages(unpoisoned(block.pages, block.capacity), block.capacity);
    };
    try {
      const callbacks::MutexLock lock(_mutex);
      function(surplus);
    } catch (...) {
      unmapAll();
      throw;
    }
    unmapAll();
  }

  void startSweeping() KESTREL_REQUIRES(_mutex) {
    std::thread([this] {
      do {
        std::this_thread::sleep_for(sweepInterval);
      } while (giveBack(Clock::now() - longestIdle) || !endSweeping());
    }).detach();
    _sweeping = true;
  }

  /// Unless something was kept just now.
  bool endSweeping() {
    const callbacks::MutexLock lock(_mutex);
    _sweeping = _cache.kept() > 0;
    return !_sweeping;
  }

  callbacks::Mutex _mutex;
  BlockCache _cache KESTREL_GUARDED_BY(_mutex){defaultLimit};
  bool _sweeping KESTREL_GUARDED_BY(_mutex) = false;  // the thread is there
};

}  // namespace

void* allocate(std::size_t size) {
  if (size < leastKept) return ::operator new(size);
  if (size > std::numeric_limits<std::size_t>::max() / 4) throw std::bad_alloc();
  const std::size_t capacity = BlockCache::capacityFor(size);
  void* block = Store::shared().take(capacity);
  if (block == nullptr) block = mapPages(capacity);
  if (block == nullptr) {  // what is kept may be what is missing
    (void)Store::shared().giveBack(Clock::now());
    block = mapPages(capacity);
  }
  if (block == nullptr) throw std::bad_alloc();
  unpoisoned(block, size);
  return block;
}

void release(void* block, std::size_t size) noexcept {
  if (size < leastKept) return ::operator delete(block);
  const std::size_t capacity = BlockCache::capacityFor(size);
  poison(block, capacity);
  try {
    Store::shared().keep({block, capacity});
  } catch (...) {  // no memory for the book-keeping, or no thread to look after it
    unmapPages(unpoisoned(block, capacity), capacity);
  }
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
