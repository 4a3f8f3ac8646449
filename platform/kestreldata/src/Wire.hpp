#pragma once

#include <cstddef>
#include <cstdint>

namespace kestreldata {

class KESTREL_Array;

namespace detail {

/// No byte of it is 0: a parser that reads past the end of a message that was cut short finds zeros there,
/// and must not find the mark complete.
inline constexpr std::uint32_t endMark = 0x9d5ec3a7;

/// What the parser takes: it counts bytes in a signed 32-bit number.
inline constexpr std::size_t maxEncodedBytes = 0x7fffffff;

}  // namespace detail

}  // namespace kestreldata
