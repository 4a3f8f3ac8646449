#pragma once

#include <kestreldata/Array.hpp>

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "remote_connectivity/asyncio/util/RemoteAsyncIOError.hpp"

namespace remote_connectivity::asyncio::util {

/// An array in full, such as `cell 1x2 {string 1x1 "createHost", uint64 1x1 7}`; absent strings are
/// <missing>.
std::string textOf(const kestreldata::Array& array);

/// Values of parse results: texts in quotes, the default of numbers as "default", codes as numbers.
std::string textOf(const std::string& text);
std::string textOf(std::uint64_t number);
std::string textOf(const std::vector<std::uint64_t>& numbers);
std::string textOf(RemoteAsyncIOError error);

/// The values of a parse result in their order, separated by commas.
template <class... Values>
std::string textOf(const std::tuple<Values...>& result) {
  return std::apply([](const auto& first,
                       const auto&... others) { return (textOf(first) + ... + (", " + textOf(others))); },
                    result);
}

}  // namespace remote_connectivity::asyncio::util
