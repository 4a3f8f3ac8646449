#pragma once

#include <cstddef>
#include <utility>

#include "kestreldata/Array.hpp"
#include "kestreldata/ElementReference.hpp"
#include "kestreldata/ElementTraits.hpp"
#include "kestreldata/Exceptions.hpp"
#include "kestreldata/detail/Body.hpp"

namespace kestreldata {

/// An array whose element type is known: a view that shares the storage of the Array it is made from. The
/// const members never unshare it; the others that hand out pointers do, and a pointer taken before a copy is
/// made must not be written through afterwards. Threads: as Array. A moved-from object has no elements.
template <ArrayElement T>
class TypedArray : public Array {
 public:
  using value_type = T;
  using iterator = T*;
  using const_iterator = const T*;
  using reference = ElementReference<T>;
  using const_reference = ElementReference<const T>;

  /// Throws InvalidArrayTypeException, which names both types, unless the array holds elements of type T.
  TypedArray(const Array& array) : Array(checked(array)) {}
  TypedArray(Array&& array) : Array(std::move(checked(array))) {}

  /// The elements in column-major order, to read. Writing to the array, also through this very object, ends
  /// all iterators that were had before.
  [[nodiscard]] const_iterator begin() const noexcept { return first(); }
  [[nodiscard]] const_iterator end() const noexcept { return first() + size(); }
  [[nodiscard]] const_iterator cbegin() const noexcept { return begin(); }
  [[nodiscard]] const_iterator cend() const noexcept { return end(); }

  /// The elements in column-major order, to write: copies the storage first when it is shared.
  [[nodiscard]] iterator begin() { return unsharedFirst(); }
  [[nodiscard]] iterator end() { return unsharedFirst() + size(); }

  /// The element with that column-major position, or, when further indices are added to the reference, in
  /// that row. Throws InvalidArrayIndexException.
  [[nodiscard]] reference operator[](std::size_t index) { return reference(*this, index); }
  [[nodiscard]] const_reference operator[](std::size_t index) const { return const_reference(*this, index); }

 private:
  template <typename U>
  friend class ElementReference;

  template <typename A>
  static A& checked(A& array) {
    if (array.getType() != detail::arrayTypeOf<T>)
      throw InvalidArrayTypeException(detail::arrayTypeOf<T>, array.getType());
    return array;
  }

  // Through a reference to its base an object can be assigned an array of another type; it then has no
  // elements to show.
  [[nodiscard]] bool isSound() const noexcept {
    return body() != nullptr && body()->type == detail::arrayTypeOf<T>;
  }
  [[nodiscard]] std::size_t size() const noexcept { return isSound() ? body()->elements : 0; }
  [[nodiscard]] const T* first() const noexcept {
    return isSound() ? detail::elementsOf<T>(*body()) : nullptr;
  }
  [[nodiscard]] T* unsharedFirst() { return isSound() ? detail::elementsOf<T>(*unsharedBody()) : nullptr; }

  [[nodiscard]] const T& at(std::size_t position) const {
    if (position >= size()) throw InvalidArrayIndexException(position, size());
    return first()[position];
  }
  [[nodiscard]] T& at(std::size_t position) {
    if (position >= size()) throw InvalidArrayIndexException(position, size());
    return unsharedFirst()[position];
  }

  // Only for arrays that have elements, hence a body.
  [[nodiscard]] const detail::Dimensions& dimensions() const noexcept { return body()->dimensions; }
};

}  // namespace kestreldata
