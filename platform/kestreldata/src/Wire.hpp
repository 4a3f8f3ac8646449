#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "kestreldata/ElementTraits.hpp"

namespace kestreldata::detail {

static_assert(std::endian::native == std::endian::little, "payloads travel as they lie in memory");

/// What stands before each field of the message: its number and wire type. All numbers are below 16, so that
/// one byte is enough.
enum class Tag : std::uint8_t {
  type = 1 << 3,
  rows = 2 << 3,
  columns = 3 << 3,
  higherDimensions = 4 << 3 | 2,
  alignment = 5 << 3 | 2,
  payload = 6 << 3 | 2,
  stringLengths = 7 << 3 | 2,
  cells = 8 << 3 | 2,
  endMark = 15 << 3 | 5,
};

[[nodiscard]] constexpr std::uint64_t fieldNumber(Tag tag) noexcept {
  return static_cast<std::uint8_t>(tag) >> 3;
}

/// No byte of it is 0: a parser that reads past the end of a message that was cut short finds zeros there,
/// and must not find the mark complete.
inline constexpr std::uint32_t endMark = 0x9d5ec3a7;
inline constexpr std::size_t endMarkFieldSize = 1 + sizeof(endMark);

/// What the parser takes: it counts bytes in a signed 32-bit number.
inline constexpr std::size_t maxEncodedBytes = 0x7fffffff;

/// How the length of a string element travels: 0 says that the string is missing.
[[nodiscard]] inline std::size_t encodedLength(const optional<String>& string) noexcept {
  return string ? string->size() + 1 : 0;
}

/// Bytes of a number in base 128.
[[nodiscard]] constexpr std::size_t varintSize(std::uint64_t number) noexcept {
  return (static_cast<std::size_t>(std::bit_width(number | 1)) + 6) / 7;
}

/// Bytes of a field of that many bytes together with its tag and length.
[[nodiscard]] constexpr std::size_t lengthDelimitedSize(std::size_t bytes) noexcept {
  return 1 + varintSize(bytes) + bytes;
}

}  // namespace kestreldata::detail
