#include "transports/memory/MessageBytes.hpp"

#include <cstring>

#include "transports/memory/BufferPool.hpp"

namespace kestrel::streams {

MessageBytes::MessageBytes(const std::uint8_t* source, std::size_t size) : _size(size) {
  if (pooled()) {
    _block = BufferPool::shared().acquire(size + line);
    _begin = _block + reinterpret_cast<std::uintptr_t>(source) % line;
  } else {
    _begin = _block = new std::uint8_t[size];
  }
  if (size > 0) std::memcpy(_begin, source, size);
}

MessageBytes::~MessageBytes() {
  if (pooled()) {
    BufferPool::shared().release(_block, _size + line);
  } else {
    delete[] _block;
  }
}

}  // namespace kestrel::streams
