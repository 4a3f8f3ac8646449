#include "kestreldata/detail/Bytes.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

#include "kestrel/memory/Blocks.hpp"

namespace kestreldata::detail {

namespace memory = kestrel::memory;

Bytes::Bytes(std::size_t size) {
  if (size > inPlace) _data = static_cast<char*>(memory::allocate(size));
  _size = size;
}

Bytes::Bytes(const void* data, std::size_t size) : Bytes(size) {
  if (size > 0) std::memcpy(this->data(), data, size);
}

Bytes::Bytes(Bytes&& other) noexcept {
  swap(other);
}

Bytes& Bytes::operator=(Bytes other) noexcept {
  swap(other);
  return *this;
}

Bytes::~Bytes() {
  if (_size > inPlace && !_lender) memory::release(_data, _size);
}

void Bytes::swap(Bytes& other) noexcept {
  std::swap(_data, other._data);
  std::swap(_size, other._size);
  std::swap(_lender, other._lender);
  std::swap(_place, other._place);
}

Bytes Bytes::lent(std::shared_ptr<const void> lender, const void* data, std::size_t size) {
  if (size <= inPlace) return {data, size};
  Bytes bytes;
  bytes._data =
      const_cast<char*>(static_cast<const char*>(data));  // which own() replaces before it is written
  bytes._size = size;
  bytes._lender = std::move(lender);
  return bytes;
}

void Bytes::own() {
  if (_lender) *this = Bytes(*this);
}

bool operator==(const Bytes& left, const Bytes& right) noexcept {
  return std::equal(left.begin(), left.end(), right.begin(), right.end());
}

}  // namespace kestreldata::detail
