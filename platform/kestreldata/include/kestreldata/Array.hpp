#pragma once

#include <cstddef>
#include <utility>

#include "kestreldata/ArrayType.hpp"
#include "kestreldata/Export.hpp"
#include "kestreldata/detail/BodyPointer.hpp"

namespace kestreldata {

namespace detail {
struct BodyAccess;
}

/// A column-major array of any element type, as a value: a copy costs O(1) and shares the elements until one
/// of the copies is written to. One object belongs to one thread at a time, distinct copies may be used on
/// different threads at once. A moved-from array is an empty 0x0 double array, whatever it was before.
class KESTRELDATA_EXPORT Array {
 public:
  /// A 0x0 double array.
  Array() noexcept = default;

  [[nodiscard]] ArrayType getType() const noexcept;

  /// Sizes, rows first; at least two.
  [[nodiscard]] ArrayDimensions getDimensions() const;

  [[nodiscard]] std::size_t getNumberOfElements() const noexcept;

  /// Whether there are no elements.
  [[nodiscard]] bool isEmpty() const noexcept { return getNumberOfElements() == 0; }

  /// Deep equality: same type, same dimensions, same content. Floating-point elements are the same when they
  /// compare equal or have the same bits, so a NaN equals itself and 0.0 equals -0.0.
  friend KESTRELDATA_EXPORT bool operator==(const Array& left, const Array& right);

 protected:
  explicit Array(detail::BodyPointer body) noexcept : _body(std::move(body)) {}

  [[nodiscard]] const detail::Body* body() const noexcept { return _body.get(); }
  [[nodiscard]] detail::Body* unsharedBody() { return _body.unshared(); }

 private:
  friend struct detail::BodyAccess;

  detail::BodyPointer _body;
};

}  // namespace kestreldata
