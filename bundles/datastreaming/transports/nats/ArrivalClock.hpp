#pragma once

#include <cstdint>

#include "transports/shared/Frame.hpp"

namespace kestrel::streams {

/// The time that the delivery of one subscription has reached: everything that arrived before it has been
/// taken from the queue. It lags behind while the queue is worked off, so that what waits there does not seem
/// to be missing. For one thread.
class ArrivalClock {
 public:
  explicit ArrivalClock(TimePoint now) : _mark(now), _reached(now) {}

  /// One message has been taken, or none was there, and that many wait behind it.
  void advance(TimePoint now, std::uint64_t waiting) {
    if (_ahead > 0) --_ahead;
    if (waiting == 0) {
      _reached = _mark = now;
      _ahead = 0;
    } else if (_ahead == 0) {
      _reached = _mark;
      _mark = now;
      _ahead = waiting;
    }
  }

  [[nodiscard]] TimePoint reached() const { return _reached; }

 private:
  TimePoint _mark;
  TimePoint _reached;
  std::uint64_t _ahead = 0;  // messages that were there at _mark and are still to come
};

}  // namespace kestrel::streams
