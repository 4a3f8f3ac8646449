#pragma once

#include <cstdint>
#include <random>

namespace soak {

/// All choices of one thread; the same seed makes the same choices.
class Random {
 public:
  explicit Random(std::uint64_t seed) : _engine(seed) {}

  /// Both ends included.
  std::int64_t between(std::int64_t least, std::int64_t most) {
    return std::uniform_int_distribution<std::int64_t>(least, most)(_engine);
  }
  bool chance(int percent) { return between(1, 100) <= percent; }
  std::uint64_t seed() { return _engine(); }

 private:
  std::mt19937_64 _engine;
};

}  // namespace soak
