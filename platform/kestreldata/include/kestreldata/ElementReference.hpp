#pragma once

#include <cstddef>
#include <string>
#include <type_traits>
#include <utility>

#include "kestreldata/ElementTraits.hpp"
#include "kestreldata/Exceptions.hpp"
#include "kestreldata/Text.hpp"

namespace kestreldata {

template <ArrayElement T>
class TypedArray;

/// Stands for one element of an array: `array[4]` counts all elements in column-major order, `array[1][2]`
/// names row 1 of column 2, and so on. When there are fewer indices than dimensions, the last one runs over
/// the remaining dimensions taken together. T is const for elements that may only be read. Reading never
/// unshares the storage of copies, assigning does. It must not outlive the array object it was taken from,
/// and belongs to that object's thread.
template <typename T>
class ElementReference {
 public:
  using value_type = std::remove_const_t<T>;
  using array_type =
      std::conditional_t<std::is_const_v<T>, const TypedArray<value_type>, TypedArray<value_type>>;

  ElementReference(const ElementReference&) = default;
  ~ElementReference() = default;

  /// The same element with one index more. Throws InvalidArrayIndexException when the index, or one before
  /// it, lies outside its dimension or there is no dimension left for it.
  [[nodiscard]] ElementReference operator[](std::size_t index) const {
    ElementReference next(*this);
    next.append(index);
    return next;
  }

  /// The element in place, valid until the array is written to, assigned or destroyed.
  [[nodiscard]] const value_type& value() const { return std::as_const(*_array).at(offset()); }

  operator value_type() const { return value(); }

  ElementReference& operator=(value_type newValue) requires(!std::is_const_v<T>) {
    _array->at(offset()) = std::move(newValue);
    return *this;
  }

  /// Assigns the element, not the reference.
  ElementReference& operator=(const ElementReference& other) requires(!std::is_const_v<T>) {
    return *this = value_type(other);
  }

  friend bool operator==(const ElementReference& reference,
                         const value_type& other) requires(!std::is_arithmetic_v<value_type> &&
                                                           !std::is_same_v<value_type, Array>) {
    return reference.value() == other;
  }

 private:
  friend class TypedArray<value_type>;

  ElementReference(array_type& array, std::size_t index)
      : _array(&array), _room(array.getNumberOfElements()), _index(index) {
    check(_index, _room);
  }

  static void check(std::size_t index, std::size_t limit) {
    if (index >= limit) throw InvalidArrayIndexException(index, limit);
  }

  void append(std::size_t index) {
    const auto& dimensions = _array->dimensions();
    if (_dimension + 1 >= dimensions.count())
      throw InvalidArrayIndexException("More than " + std::to_string(dimensions.count()) +
                                       " indices for an array of as many dimensions");
    const std::size_t size = dimensions[_dimension];
    check(_index, size);
    _base += _stride * _index;
    _stride *= size;
    _room /= size;
    _index = index;
    ++_dimension;
    check(_index, _room);
  }

  [[nodiscard]] std::size_t offset() const noexcept { return _base + _stride * _index; }

  array_type* _array;
  std::size_t _base = 0;       // elements before those the last index chooses from
  std::size_t _stride = 1;     // elements from one value of the last index to the next
  std::size_t _room;           // how many values the last index can have
  std::size_t _index;          // the last index
  std::size_t _dimension = 0;  // the dimension it belongs to
};

/// The text of a string element as 7-bit text. Throws MissingStringException or
/// NonAsciiCharInInputDataException.
template <typename T>
requires std::same_as<std::remove_const_t<T>, optional<String>>
[[nodiscard]] std::string castToString(const ElementReference<T>& element) {
  return castToString(element.value());
}

}  // namespace kestreldata
