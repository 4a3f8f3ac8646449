#pragma once

#include <cstddef>
#include <string>

#include "kestreldata/Exceptions.hpp"
#include "kestreldata/SerializationContext.hpp"

namespace kestreldata::detail {

/// Adds up what the parts of an array take in memory at the most while it is decoded, their elements' bytes
/// apart, and refuses more than maxStructureBytes: a byte or two of an encoding can stand for a hundred of
/// memory. Both ends count, so that what is sent can be received.
class StructureCost {
 public:
  void addArrays(std::size_t count) { add(count, perArray); }
  void addStrings(std::size_t count) { add(count, perString); }
  void addHigherDimensions(std::size_t count) { add(count, perDimension); }

  // Measured with glibc's allocator on x86-64: at most 320, 48 and 16 bytes, a message's own parts, what is
  // built from it and the allocator's share included.
  static constexpr std::size_t perArray = 320;

 private:
  static constexpr std::size_t perString = 64;
  static constexpr std::size_t perDimension = 32;

  void add(std::size_t count, std::size_t cost) {
    if (count > (maxStructureBytes - _sum) / cost)
      throw SerializationException("Expected an array whose cells and strings take at most " +
                                   std::to_string(maxStructureBytes) +
                                   " bytes of memory besides their elements, got a larger one");
    _sum += count * cost;
  }

  std::size_t _sum = 0;
};

}  // namespace kestreldata::detail
