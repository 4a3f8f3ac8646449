#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "kestreldata/Array.hpp"
#include "kestreldata/detail/Body.hpp"

namespace kestreldata::detail {

/// Gives the library's own units the storage behind an array, null for a 0x0 double array without any.
struct BodyAccess {
  [[nodiscard]] static const Body* body(const Array& array) noexcept { return array.body(); }

  /// The content must have as many elements of that type as the dimensions say.
  [[nodiscard]] static Array make(ArrayType type, Dimensions dimensions, std::size_t elements,
                                  std::variant<Bytes, Strings, Cells> content) {
    return Array(BodyPointer(new Body{.type = type,
                                      .dimensions = std::move(dimensions),
                                      .elements = elements,
                                      .content = std::move(content)}));
  }
};

/// Bytes that an element of any type takes in the storage; 0 for a number that is no type.
[[nodiscard]] std::size_t storedElementSize(ArrayType type) noexcept;

[[nodiscard]] std::optional<std::size_t> elementCountOfMany(const Dimensions& dimensions,
                                                            std::size_t elementSize) noexcept;

/// The product of the dimensions, or nothing when that many elements of this size cannot be addressed.
[[nodiscard]] inline std::optional<std::size_t> elementCount(const Dimensions& dimensions,
                                                             std::size_t elementSize) noexcept {
  constexpr std::size_t few = std::size_t{1} << 20;  // even when three of them are multiplied
  if (!dimensions.higher.empty() || (dimensions.rows | dimensions.columns | elementSize) >= few)
    return elementCountOfMany(dimensions, elementSize);
  return dimensions.rows * dimensions.columns;
}

/// Dimensions as in "2x3x4".
[[nodiscard]] std::string toString(const Dimensions& dimensions);

}  // namespace kestreldata::detail
