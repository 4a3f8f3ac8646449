#pragma once

#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

#include "kestreldata/Array.hpp"
#include "kestreldata/CharArray.hpp"
#include "kestreldata/ElementTraits.hpp"
#include "kestreldata/Export.hpp"
#include "kestreldata/TypedArray.hpp"

namespace kestreldata {

/// Makes arrays. Has no state: one object may be used on any number of threads at once. Everything that takes
/// dimensions throws InvalidDimensionsException for fewer than two of them and for more elements than memory
/// can address.
class KESTRELDATA_EXPORT ArrayFactory {
 public:
  ArrayFactory() = default;
  ArrayFactory(const ArrayFactory&) = default;
  ArrayFactory& operator=(const ArrayFactory&) = default;
  virtual ~ArrayFactory();

  /// An array of default elements: zeros, false, character 0, strings that are present and empty, and in
  /// cells the default Array. Throws InvalidArrayTypeException for a number that is no ArrayType.
  [[nodiscard]] Array createArray(ArrayType type, const ArrayDimensions& dimensions) const;

  template <ArrayElement T>
  [[nodiscard]] TypedArray<T> createArray(const ArrayDimensions& dimensions) const {
    return createArray(detail::arrayTypeOf<T>, dimensions);
  }

  /// Takes the elements in column-major order. Throws InvalidElementCountException unless they fill the
  /// dimensions exactly.
  template <ArrayElement T, std::input_iterator Iterator>
  [[nodiscard]] TypedArray<T> createArray(const ArrayDimensions& dimensions, Iterator first,
                                          Iterator last) const {
    TypedArray<T> result = createArray<T>(dimensions);
    std::size_t given = 0;
    T* const begin = result.begin();
    const std::size_t wanted = result.getNumberOfElements();
    for (; first != last; ++first, ++given)
      if (given < wanted) begin[given] = static_cast<T>(*first);
    requireCount(wanted, given);
    return result;
  }

  template <ArrayElement T>
  [[nodiscard]] TypedArray<T> createArray(const ArrayDimensions& dimensions,
                                          std::initializer_list<T> elements) const {
    return createArray<T>(dimensions, elements.begin(), elements.end());
  }

  /// An array of fixed-size elements copied from memory, in column-major order. byteCount must be the element
  /// size times the product of the dimensions, else InvalidElementCountException. Throws
  /// InvalidArrayTypeException for STRING and CELL. In a logical array every byte but 0 is true.
  [[nodiscard]] Array createArrayWithData(ArrayType type, const ArrayDimensions& dimensions, const void* data,
                                          std::size_t byteCount) const;

  /// A 1x1 array.
  template <ArrayElement T>
  requires(!std::same_as<T, Array>) [[nodiscard]] TypedArray<T> createScalar(T value) const {
    return createArray<T>({1, 1}, {std::move(value)});
  }

  /// A 1x1 string array. Throws NonAsciiCharInInputDataException for any byte of 128 or more.
  [[nodiscard]] TypedArray<optional<String>> createScalar(std::string_view text) const;
  [[nodiscard]] TypedArray<optional<String>> createScalar(String text) const;

  /// A 1xN char array, also for an empty text. Throws NonAsciiCharInInputDataException for any byte of 128 or
  /// more.
  [[nodiscard]] CharArray createCharArray(std::string_view text) const;
  [[nodiscard]] CharArray createCharArray(std::u16string_view text) const;

  /// A 0x0 double array.
  [[nodiscard]] Array createEmptyArray() const;

  /// A cell array of default Arrays.
  [[nodiscard]] TypedArray<Array> createCellArray(const ArrayDimensions& dimensions) const;

  /// A cell array of these elements in column-major order. Throws InvalidElementCountException unless they
  /// fill the dimensions exactly.
  [[nodiscard]] TypedArray<Array> createCellArray(const ArrayDimensions& dimensions,
                                                  std::vector<Array> elements) const;

  template <std::convertible_to<Array>... Elements>
  requires(sizeof...(Elements) > 0)
      [[nodiscard]] TypedArray<Array> createCellArray(const ArrayDimensions& dimensions,
                                                      Elements&&... elements) const {
    std::vector<Array> cells;
    cells.reserve(sizeof...(Elements));
    (cells.push_back(std::forward<Elements>(elements)), ...);
    return createCellArray(dimensions, std::move(cells));
  }

 private:
  static void requireCount(std::size_t wanted, std::size_t given);
};

namespace standalone {

/// The factory of a program that brings no array store of its own: arrays live in this process's heap.
class KESTRELDATA_EXPORT ArrayFactory : public kestreldata::ArrayFactory {
 public:
  ~ArrayFactory() override;
};

}  // namespace standalone

}  // namespace kestreldata
