#pragma once

#include <cstdint>
#include <utility>

#include "sequencing/Frame.hpp"

namespace kestrel::streams {

/// Counts what others can make happen as often as they like, so that it is told of at once and then only now
/// and then. A plain object, not thread-safe.
class Throttle {
 public:
  static constexpr std::chrono::seconds interval{10};

  void add() { ++_untold; }
  /// How many to tell of now; 0 if there are none, or it is too early.
  [[nodiscard]] std::uint64_t due(TimePoint now) {
    if (_untold == 0 || now < _next) return 0;
    _next = now + interval;
    return std::exchange(_untold, 0);
  }
  /// Whether due() has something to give sooner or later.
  [[nodiscard]] bool pending() const { return _untold > 0; }

 private:
  std::uint64_t _untold = 0;
  TimePoint _next{};
};

}  // namespace kestrel::streams
