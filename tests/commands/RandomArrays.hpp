#pragma once

#include <kestreldata/Array.hpp>

#include <random>

namespace remote_connectivity::asyncio::util {

/// Arrays that are nearly commands and responses: built as they should be, then spoilt in random places; and
/// some that are anything. The same seed gives the same arrays.
class RandomArrays {
 public:
  explicit RandomArrays(unsigned seed) : _random(seed) {}

  kestreldata::Array next();

 private:
  std::size_t below(std::size_t limit) { return _random() % limit; }
  kestreldata::Array anything(int depth);
  kestreldata::Array leaf();
  kestreldata::Array name();
  kestreldata::Array errorCell();
  kestreldata::Array command();
  kestreldata::Array response();

  std::mt19937 _random;
};

}  // namespace remote_connectivity::asyncio::util
