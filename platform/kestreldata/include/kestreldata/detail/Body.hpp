#pragma once

#include <atomic>
#include <cstddef>
#include <type_traits>
#include <variant>
#include <vector>

#include "kestreldata/Array.hpp"
#include "kestreldata/ArrayType.hpp"
#include "kestreldata/ElementTraits.hpp"
#include "kestreldata/detail/Bytes.hpp"

namespace kestreldata::detail {

/// Sizes of an array. The two that every array has are held in place, so that ordinary arrays cost no
/// allocation for them.
struct KESTRELDATA_EXPORT Dimensions {
  std::size_t rows = 0;
  std::size_t columns = 0;
  std::vector<std::size_t> higher;

  /// Throws InvalidDimensionsException for fewer than two sizes.
  [[nodiscard]] static Dimensions from(const ArrayDimensions& sizes);

  [[nodiscard]] ArrayDimensions toVector() const;
  [[nodiscard]] std::size_t count() const noexcept { return 2 + higher.size(); }
  [[nodiscard]] std::size_t operator[](std::size_t position) const {
    return position == 0 ? rows : position == 1 ? columns : higher[position - 2];
  }
  bool operator==(const Dimensions&) const = default;
};

using Strings = std::vector<optional<String>>;
using Cells = std::vector<Array>;

/// What copies of an array share. Written to only through the one reference that is left to it.
struct Body {
  std::atomic<std::size_t> references{1};
  ArrayType type;
  Dimensions dimensions;
  std::size_t elements;
  std::variant<Bytes, Strings, Cells> content;
};

template <ArrayElement T>
using ContentOf = std::conditional_t<std::is_same_v<T, Array>, Cells,
                                     std::conditional_t<std::is_same_v<T, optional<String>>, Strings, Bytes>>;

/// The first element; the body's type must be that of T.
template <ArrayElement T>
[[nodiscard]] const T* elementsOf(const Body& body) noexcept {
  return reinterpret_cast<const T*>(std::get_if<ContentOf<T>>(&body.content)->data());
}

template <ArrayElement T>
[[nodiscard]] T* elementsOf(Body& body) noexcept {
  return reinterpret_cast<T*>(std::get_if<ContentOf<T>>(&body.content)->data());
}

}  // namespace kestreldata::detail
