#pragma once

#include <cstdint>

#include "transports/shared/Frame.hpp"

namespace kestrel::streams {

/// The time that the delivery of one subscription has reached: everything that arrived before it has been
/// taken from the queue. It lags behind while the queue is worked off, so that what waits there does not seem
/// to be missing, and it stands still while the connection is away. For one thread.
class ArrivalClock {
 public:
  explicit ArrivalClock(TimePoint now) : _mark(now), _reached(now) {}

  /// One message is about to be handled, or none was there, and that many wait behind it.
  TimePoint advance(TimePoint now, std::uint64_t waiting) {
    if (_ahead > 0) --_ahead;
    if (waiting == 0) {
      _reached = now;
      _ahead = 0;
      _mark = now;
    } else if (_ahead == 0) {
      _reached = _mark;
      _mark = now;
      _ahead = waiting;
    }
    return _reached - _away;
  }

  /// That much of the time that has passed does not count.
  void exclude(Clock::duration away) { _away += away; }

  /// A time of this clock as one of the real clock.
  [[nodiscard]] TimePoint real(TimePoint time) const { return time + _away; }

 private:
  TimePoint _mark;
  TimePoint _reached;
  std::uint64_t _ahead = 0;  // messages that were there at _mark and are still to come
  Clock::duration _away{};
};

}  // namespace kestrel::streams
