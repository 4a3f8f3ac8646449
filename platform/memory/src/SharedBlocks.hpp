#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>

#include "MappableBlocks.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"
#include "kestrel/memory/Buffer.hpp"

namespace kestrel::memory {

/// The frozen blocks of the process, by address. Safe from any thread.
class SharedBlocks {
 public:
  static SharedBlocks& shared();

  void beforeFork() KESTREL_UNCHECKED { _mutex.lock(); }
  void afterFork() KESTREL_UNCHECKED { _mutex.unlock(); }
  void afterForkInChild() KESTREL_UNCHECKED { _mutex.unlock(); }

  /// Takes over a block of allocate(), then without a descriptor, or of allocateMappable(), of which the
  /// first `size` bytes are to be found. Throws std::bad_alloc, and the block stays the caller's.
  [[nodiscard]] SharedBytes add(MappableBlock block, std::size_t size, std::size_t capacity);
  /// The block in which all of these bytes lie; empty if there is none.
  [[nodiscard]] Frozen find(const std::uint8_t* data, std::size_t size);
  /// The block that begins there is not to be used again.
  void keepFromReuse(const std::uint8_t* block) noexcept;

 private:
  struct Holder;
  struct Entry {
    std::size_t size = 0;
    int descriptor = -1;
    bool reusable = true;
    std::weak_ptr<const std::uint8_t> owner;
  };

  /// Returns whether its memory may be used again.
  bool remove(const std::uint8_t* block) noexcept;

  callbacks::Mutex _mutex;
  std::map<const std::uint8_t*, Entry> _entries KESTREL_GUARDED_BY(_mutex);
};

}  // namespace kestrel::memory
