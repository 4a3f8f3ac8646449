#include "transports/shared/SequenceTrack.hpp"

#include <algorithm>
#include <utility>

namespace kestrel::streams {

SequenceTrack::Step SequenceTrack::arrived(std::uint64_t number, std::uint64_t refusedBefore) {
  if (_first == 0) {
    restart(number);
    return {};
  }
  if (number < _next) {
    if (goesBackTo(number)) return {Kind::back};
    return {number < _first ? Kind::early : Kind::copy};
  }
  const std::uint64_t jump = number - _next;
  if (jump > longestJump) return {Kind::unbelieved};
  const std::uint64_t missing = jump - std::min(jump, refusedBefore);
  if (missing > 0) _skipped[_jumps++ % _skipped.size()] = _next;
  _next = number + 1;
  return {Kind::next, missing};
}

SequenceTrack::Step SequenceTrack::told(std::uint64_t last) {
  if (last < _next) return {};
  if (_first == 0) {
    restart(last);
    return {};
  }
  const std::uint64_t missing = last - _next + 1;
  if (missing > longestJump) return {Kind::unbelieved};
  _skipped[_jumps++ % _skipped.size()] = _next;
  _next = last + 1;
  return {Kind::next, missing};
}

bool SequenceTrack::goesBackTo(std::uint64_t number) {
  if (number < _first) {
    _earlyCount = number == std::exchange(_earlyRun, number + 1) ? _earlyCount + 1 : 1;
    if (_earlyCount < proof) return false;
    restart(number);
    return true;
  }
  const auto skipped = std::find(_skipped.begin(), _skipped.end(), number);
  if (skipped == _skipped.end()) return false;
  *skipped = 0;
  _next = number + 1;
  return true;
}

void SequenceTrack::restart(std::uint64_t number) {
  *this = SequenceTrack();
  _first = number;
  _next = number + 1;
}

}  // namespace kestrel::streams
