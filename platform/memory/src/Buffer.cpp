#include "kestrel/memory/Buffer.hpp"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <utility>

#include "MappableBlocks.hpp"
#include "SharedBlocks.hpp"
#include "kestrel/memory/Blocks.hpp"

namespace kestrel::memory {

namespace {
std::atomic<bool> sendingMappable{false};
}

void makeSendingMappable() noexcept {
  sendingMappable = true;
}

Buffer::Buffer(std::size_t size) {
  reserve(size);
  _size = size;
}

Buffer Buffer::mappable(std::size_t size) {
  const std::size_t capacity = std::max(size, leastKept);
  const MappableBlock block = allocateMappable(capacity);
  Buffer made;
  made._data = static_cast<std::uint8_t*>(block.begin);
  made._descriptor = block.descriptor;
  made._size = size;
  made._capacity = capacity;
  return made;
}

Buffer Buffer::toSend(std::size_t size) {
  // The other half is for what must be mappable, whoever holds on to these.
  if (size < leastMappable || !sendingMappable || memory::mappable() >= mostMappable / 2) return Buffer(size);
  try {
    return mappable(size);
  } catch (const std::bad_alloc&) {
    return Buffer(size);
  }
}

Buffer::Buffer(Buffer&& other) noexcept
    : _data(std::exchange(other._data, nullptr)),
      _size(std::exchange(other._size, 0)),
      _capacity(std::exchange(other._capacity, 0)),
      _descriptor(std::exchange(other._descriptor, -1)),
      _shared(std::move(other._shared)) {}

Buffer& Buffer::operator=(Buffer&& other) noexcept {
  Buffer moved(std::move(other));
  std::swap(_data, moved._data);
  std::swap(_size, moved._size);
  std::swap(_capacity, moved._capacity);
  std::swap(_descriptor, moved._descriptor);
  std::swap(_shared, moved._shared);
  return *this;
}

Buffer::~Buffer() {
  if (_shared || _data == nullptr) return;
  _descriptor < 0 ? release(_data, _capacity) : releaseMappable({_data, _descriptor}, _capacity);
}

void Buffer::reserve(std::size_t capacity) {
  if (capacity <= _capacity) return;
  Buffer larger;
  larger._data = static_cast<std::uint8_t*>(allocate(capacity));
  larger._capacity = capacity;
  larger._size = _size;
  if (_size > 0) std::memcpy(larger._data, _data, _size);
  *this = std::move(larger);
}

void Buffer::append(const void* data, std::size_t size) {
  if (size == 0) return;
  if (size > _capacity - _size) reserve(std::max(_size + size, 2 * _capacity));
  std::memcpy(_data + _size, data, size);
  _size += size;
}

void Buffer::freeze() noexcept {
  if (_shared || _size < leastKept) return;
  try {
    _shared = SharedBlocks::shared().add({_data, _descriptor}, _size, _capacity);
  } catch (const std::bad_alloc&) {  // then whoever needs the bytes copies them
  }
}

void keepFromReuse(const SharedBytes& owner) noexcept {
  SharedBlocks::shared().keepFromReuse(owner.get());
}

Frozen ownerOf(const void* data, std::size_t size) noexcept {
  return SharedBlocks::shared().find(static_cast<const std::uint8_t*>(data), size);
}

}  // namespace kestrel::memory
