#include "sequencing/PayloadBuffer.hpp"

#include <algorithm>
#include <cstring>
#include <new>

namespace kestrel::streams {

void PayloadBuffer::append(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return;
  if (size > _capacity - _size) grow(_size + size);
  std::memcpy(_bytes.get() + _size, data, size);
  _size += size;
}

void PayloadBuffer::grow(std::size_t needed) {
  const std::size_t capacity = std::max(needed, 2 * _capacity);
  void* const grown = std::realloc(_bytes.get(), capacity);
  if (grown == nullptr) throw std::bad_alloc();
  (void)_bytes.release();  // realloc() has taken it
  _bytes.reset(static_cast<std::uint8_t*>(grown));
  _capacity = capacity;
}

}  // namespace kestrel::streams
