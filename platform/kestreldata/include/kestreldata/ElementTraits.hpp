#pragma once

#include <complex>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>

#include "kestreldata/Array.hpp"
#include "kestreldata/ArrayType.hpp"

namespace kestreldata {

template <typename T>
using optional = std::optional<T>;

/// UTF-16 text. An element of a string array is an optional<String>; one without a value is a missing string.
using String = std::u16string;

namespace detail {

/// The array type whose elements are T; 0 where there is none.
template <typename T>
inline constexpr ArrayType arrayTypeOf = ArrayType{0};
template <>
inline constexpr ArrayType arrayTypeOf<bool> = ArrayType::LOGICAL;
template <>
inline constexpr ArrayType arrayTypeOf<char16_t> = ArrayType::CHAR;
template <>
inline constexpr ArrayType arrayTypeOf<optional<String>> = ArrayType::STRING;
template <>
inline constexpr ArrayType arrayTypeOf<double> = ArrayType::DOUBLE;
template <>
inline constexpr ArrayType arrayTypeOf<float> = ArrayType::SINGLE;
template <>
inline constexpr ArrayType arrayTypeOf<std::int8_t> = ArrayType::INT8;
template <>
inline constexpr ArrayType arrayTypeOf<std::uint8_t> = ArrayType::UINT8;
template <>
inline constexpr ArrayType arrayTypeOf<std::int16_t> = ArrayType::INT16;
template <>
inline constexpr ArrayType arrayTypeOf<std::uint16_t> = ArrayType::UINT16;
template <>
inline constexpr ArrayType arrayTypeOf<std::int32_t> = ArrayType::INT32;
template <>
inline constexpr ArrayType arrayTypeOf<std::uint32_t> = ArrayType::UINT32;
template <>
inline constexpr ArrayType arrayTypeOf<std::int64_t> = ArrayType::INT64;
template <>
inline constexpr ArrayType arrayTypeOf<std::uint64_t> = ArrayType::UINT64;
template <>
inline constexpr ArrayType arrayTypeOf<Array> = ArrayType::CELL;

constexpr bool isRealNumber(ArrayType type) {
  return type >= ArrayType::DOUBLE && type <= ArrayType::UINT64;
}

// The complex types stand in the order of their parts, ten places further on.
template <typename T>
inline constexpr ArrayType arrayTypeOf<std::complex<T>> = isRealNumber(arrayTypeOf<T>)
                                                              ? ArrayType{static_cast<int>(arrayTypeOf<T>) +
                                                                          10}
                                                              : ArrayType{0};

}  // namespace detail

/// A type that arrays can hold: bool, char16_t, optional<String>, double, float, the eight fixed-width
/// integers, std::complex of the ten numeric types, and Array.
template <typename T>
concept ArrayElement = detail::arrayTypeOf<T>
!= ArrayType{0};

}  // namespace kestreldata
