#pragma once

#include <cstddef>
#include <cstdint>

namespace kestrel::streams {

/// A copy of the bytes of one message; large ones live in blocks of the shared BufferPool.
class MessageBytes {
 public:
  MessageBytes(const std::uint8_t* source, std::size_t size);
  ~MessageBytes();
  MessageBytes(const MessageBytes&) = delete;
  MessageBytes& operator=(const MessageBytes&) = delete;

  [[nodiscard]] const std::uint8_t* data() const { return _begin; }
  [[nodiscard]] std::size_t size() const { return _size; }

  /// From this size on a message's bytes come from the pool.
  static constexpr std::size_t pooledFrom = std::size_t{32} << 10;

 private:
  // The copy begins where its source begins, counted from a cache line: a target some bytes further on in its
  // page than the source makes the copy many times slower.
  static constexpr std::size_t line = 64;
  [[nodiscard]] bool pooled() const { return _size >= pooledFrom; }

  const std::size_t _size;
  std::uint8_t* _block;
  std::uint8_t* _begin;
};

}  // namespace kestrel::streams
