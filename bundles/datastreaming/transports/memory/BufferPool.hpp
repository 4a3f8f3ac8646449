#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kestrel/callbacks/ThreadSafety.hpp"

namespace kestrel::streams {

/// Keeps large blocks for reuse: a copy into pages fresh from the system costs several times what one into
/// pages in use costs. Safe from any thread.
class BufferPool {
 public:
  static constexpr std::size_t smallestBlock = std::size_t{64} << 10;
  static constexpr std::size_t largestBlock = std::size_t{64} << 20;
  static constexpr std::size_t defaultKept = std::size_t{64} << 20;

  /// The pool of the process, which is never destroyed.
  static BufferPool& shared();

  explicit BufferPool(std::size_t kept = defaultKept) : _limit(kept) {}
  ~BufferPool();
  BufferPool(const BufferPool&) = delete;
  BufferPool& operator=(const BufferPool&) = delete;

  /// A block of at least that many bytes that begins on a page. Throws std::bad_alloc.
  [[nodiscard]] std::uint8_t* acquire(std::size_t size);
  /// Takes a block back that acquire() gave for that size.
  void release(std::uint8_t* block, std::size_t size) noexcept;

 private:
  static constexpr std::size_t classes = 11;  // powers of two from the smallest block to the largest
  static std::size_t classOf(std::size_t size);
  static std::size_t capacityOf(std::size_t size);

  const std::size_t _limit;
  callbacks::Mutex _mutex;
  std::array<std::vector<std::uint8_t*>, classes> _free KESTREL_GUARDED_BY(_mutex);
  std::size_t _kept KESTREL_GUARDED_BY(_mutex) = 0;
};

}  // namespace kestrel::streams
