#pragma once

#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "kestreldata/SerializationContext.hpp"
#include "kestreldata/detail/Body.hpp"

namespace kestreldata::detail {

/// Of strings. Most messages have one.
using Lengths = boost::container::small_vector<std::uint64_t, 1>;

/// What a message says, sound or not. The payload lies where the message lies.
struct Encoding {  // NOLINT(bugprone-exception-escape): numbers in place move without an allocation
  std::uint32_t type = 0;
  std::uint32_t endMark = 0;
  Dimensions dimensions;
  std::span<const std::uint8_t> payload;
  Lengths stringLengths;
  std::vector<Encoding> cells;
};

/// Reads an encoding. If it is known to have as many cells as its dimensions say, room is made for all of
/// them at once. Throws SerializationException where the bytes are no message, or one that is nested deeper
/// than maxNestingDepth.
[[nodiscard]] Encoding readEncoding(std::span<const std::uint8_t> bytes, bool counted);

/// The same of a message that was parsed.
[[nodiscard]] Encoding encodingOf(const KESTREL_Array& message, std::size_t depth = 1);

}  // namespace kestreldata::detail
