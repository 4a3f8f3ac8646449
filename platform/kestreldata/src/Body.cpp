#include "kestreldata/detail/Body.hpp"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>
#include <string>

#include "BodyAccess.hpp"
#include "kestreldata/Exceptions.hpp"

namespace kestreldata::detail {

Dimensions Dimensions::from(const ArrayDimensions& sizes) {
  if (sizes.size() < 2)
    throw InvalidDimensionsException("Expected at least 2 dimensions, got " + std::to_string(sizes.size()));
  return {sizes[0], sizes[1], {sizes.begin() + 2, sizes.end()}};
}

ArrayDimensions Dimensions::toVector() const {
  ArrayDimensions sizes;
  sizes.reserve(count());
  sizes.push_back(rows);
  sizes.push_back(columns);
  sizes.insert(sizes.end(), higher.begin(), higher.end());
  return sizes;
}

std::size_t storedElementSize(ArrayType type) noexcept {
  if (type == ArrayType::STRING) return sizeof(Strings::value_type);
  if (type == ArrayType::CELL) return sizeof(Cells::value_type);
  return fixedElementSize(type);
}

std::optional<std::size_t> elementCountOfMany(const Dimensions& dimensions,
                                              std::size_t elementSize) noexcept {
  // Without elements the other sizes may be anything: their product is never formed.
  for (std::size_t i = 0; i < dimensions.count(); ++i)
    if (dimensions[i] == 0) return 0;
  // Multiplied first and compared then: a division takes longer than all the rest.
  std::size_t product = 1, bytes = 0;
  for (std::size_t i = 0; i < dimensions.count(); ++i)
    if (__builtin_mul_overflow(product, dimensions[i], &product)) return std::nullopt;
  if (__builtin_mul_overflow(product, std::max<std::size_t>(elementSize, 1), &bytes)) return std::nullopt;
  if (bytes > std::numeric_limits<std::ptrdiff_t>::max()) return std::nullopt;
  return product;
}

std::string toString(const Dimensions& dimensions) {
  std::string text;
  for (std::size_t i = 0; i < dimensions.count(); ++i)
    text.append(i == 0 ? "" : "x").append(std::to_string(dimensions[i]));
  return text;
}

BodyPointer::BodyPointer(const BodyPointer& other) noexcept : _body(other._body) {
  if (_body != nullptr) _body->references.fetch_add(1, std::memory_order_relaxed);
}

void BodyPointer::release() noexcept {
  // Acquire and release: the thread that frees the body, or writes to it as its last owner, must see every
  // access of the former owners as done.
  if (_body->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete _body;
}

Body* BodyPointer::unshared() {
  if (_body == nullptr) return _body;
  if (_body->references.load(std::memory_order_acquire) == 1) {
    if (auto* const bytes = std::get_if<Bytes>(&_body->content)) bytes->own();
    return _body;
  }
  *this = BodyPointer(new Body{.type = _body->type,
                               .dimensions = _body->dimensions,
                               .elements = _body->elements,
                               .content = _body->content});
  return _body;
}

}  // namespace kestreldata::detail
