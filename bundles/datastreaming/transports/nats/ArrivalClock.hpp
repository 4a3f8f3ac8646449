#pragma once

#include <chrono>
#include <cstdint>
#include <utility>

#include "sequencing/Frame.hpp"

namespace kestrel::streams {

/// What the delivery of one subscription knows of time: when that which it takes can have arrived, and up to
/// when everything has been taken. A plain object; for one thread.
class ArrivalClock {
 public:
  explicit ArrivalClock(TimePoint now)
      : _mark(now), _reached(now), _emptyAt(now), _earliest(now), _counted(now) {}

  /// The subscription was asked for a message at the first of these times and has answered by the second: one
  /// has been taken, or none was there, and so many wait behind it.
  void advance(TimePoint asked, TimePoint now, std::uint64_t waiting) {
    // Who had to wait for a message got it as it came; else it came after there was none.
    if (now - asked > std::chrono::milliseconds(1)) _emptyAt = now;
    _earliest = _emptyAt;
    if (_ahead > 0) --_ahead;
    if (waiting == 0) {
      _reached = _mark = _emptyAt = now;
      _ahead = 0;
    } else if (_ahead == 0) {
      _reached = _mark;
      _mark = now;
      _ahead = waiting;
    }
  }

  /// Everything that arrived before that time has been taken. It lags behind while the queue is worked off,
  /// so that what waits there does not seem to be missing.
  [[nodiscard]] TimePoint reached() const { return _reached; }
  /// What was taken last arrived then or later.
  [[nodiscard]] TimePoint earliest() const { return _earliest; }

  /// How long nobody could be heard since this was asked last: all the time if the way was shut, else none.
  [[nodiscard]] Clock::duration deafness(TimePoint now, bool shut) {
    const Clock::duration passed = now - std::exchange(_counted, now);
    return shut ? passed : Clock::duration::zero();
  }

 private:
  TimePoint _mark;
  TimePoint _reached;
  TimePoint _emptyAt;  // when no message waited last
  TimePoint _earliest;
  TimePoint _counted;        // when deafness() was asked last
  std::uint64_t _ahead = 0;  // messages that were there at _mark and are still to come
};

}  // namespace kestrel::streams
