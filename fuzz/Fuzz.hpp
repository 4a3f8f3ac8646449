#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

/// What libFuzzer calls with each input; every target defines it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace kestrel::fuzz {

using Input = FuzzedDataProvider;
using Bytes = std::vector<std::uint8_t>;

/// Ends the process unless it holds; libFuzzer then keeps the input.
inline void check(bool holds, const char* claim) {
  if (holds) return;
  std::fprintf(stderr, "\nDoes not hold: %s\n", claim);
  std::abort();
}

/// The text of what the action throws; empty if it throws nothing. Anything but an exception of the kind that
/// it may throw ends the process.
template <class Allowed = std::exception, class Action>
std::string failureOf(Action&& action) {
  try {
    action();
    return {};
  } catch (const Allowed& error) {
    return *error.what() == '\0' ? "an exception without a text" : error.what();
  }
}

}  // namespace kestrel::fuzz
