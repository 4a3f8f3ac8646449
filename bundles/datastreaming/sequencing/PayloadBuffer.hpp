#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

namespace kestrel::streams {

/// Bytes that grow at their end, without a copy where the system can move pages instead. Not thread-safe.
class PayloadBuffer {
 public:
  PayloadBuffer() = default;
  PayloadBuffer(PayloadBuffer&& other) noexcept
      : _bytes(std::move(other._bytes)),
        _size(std::exchange(other._size, 0)),
        _capacity(std::exchange(other._capacity, 0)) {}
  PayloadBuffer& operator=(PayloadBuffer&& other) noexcept {
    _bytes = std::move(other._bytes);
    _size = std::exchange(other._size, 0);
    _capacity = std::exchange(other._capacity, 0);
    return *this;
  }

  /// Throws std::bad_alloc, and changes nothing then.
  void append(const std::uint8_t* data, std::size_t size);
  /// Forgets the bytes and keeps the memory.
  void clear() { _size = 0; }

  [[nodiscard]] const std::uint8_t* data() const { return _bytes.get(); }
  [[nodiscard]] std::size_t size() const { return _size; }
  [[nodiscard]] std::size_t capacity() const { return _capacity; }

 private:
  void grow(std::size_t needed);

  struct Free {
    void operator()(std::uint8_t* bytes) const { std::free(bytes); }
  };
  std::unique_ptr<std::uint8_t, Free> _bytes;
  std::size_t _size = 0;
  std::size_t _capacity = 0;
};

}  // namespace kestrel::streams
