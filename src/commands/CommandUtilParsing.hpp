#pragma once

#include <kestreldata/Array.hpp>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string_view>

#include "remote_connectivity/asyncio/util/CommandUtil.hpp"

namespace remote_connectivity::asyncio::util {

/// What stands in the place of a number that could not be read.
inline constexpr std::uint64_t noNumber = std::numeric_limits<std::uint64_t>::max();

/// An element of a cell array. Throws what the array library throws.
[[nodiscard]] kestreldata::Array elementOf(const kestreldata::Array& cell, std::size_t index);

/// The first element of an unsigned 64-bit array. Throws what the array library throws for any other.
[[nodiscard]] std::uint64_t uint64FromArray(const kestreldata::Array& array);

/// Reads the number that is an element of a cell array; leaves `number` as it is when there is none.
[[nodiscard]] RemoteAsyncIOError readNumber(const kestreldata::Array& cell, std::size_t index,
                                            std::uint64_t& number);

/// Parses a command that is a name and some numbers. Numbers from the first unreadable one on stay as they
/// are.
[[nodiscard]] RemoteAsyncIOError readNumberCommand(CommandUtil& commands, const kestreldata::Array& command,
                                                   std::string_view expectedName,
                                                   std::span<std::uint64_t> numbers);

/// How many elements a complete response has, and what a shorter one means.
struct ResponseRule {
  std::size_t elements;
  RemoteAsyncIOError whenShorter;
};

/// Where the code of a response is taken from: getResponseError(), which a derived class may replace, or
/// always the error cell itself.
enum class CodeSource { responseError, errorCell };

/// The outcome of a response that has no payload to read: invalid, an error, or too short. Nothing for one
/// whose payload is there.
[[nodiscard]] std::optional<RemoteAsyncIOError> outcomeWithoutPayload(CommandUtil& commands,
                                                                      const kestreldata::Array& response,
                                                                      CodeSource source, ResponseRule rule);

}  // namespace remote_connectivity::asyncio::util
