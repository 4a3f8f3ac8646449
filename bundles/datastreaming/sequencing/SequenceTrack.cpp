#include "sequencing/SequenceTrack.hpp"

#include <algorithm>
#include <utility>

namespace kestrel::streams {

SequenceTrack::Step SequenceTrack::arrived(std::uint64_t number, std::uint64_t refusedBefore) {
  if (_first == 0) {
    restart(number);
    return {};
  }
  if (number < _next) return {below(number)};
  if (number - _next > longestJump) return {Kind::unbelieved};
  return {Kind::next, jumpTo(number, refusedBefore)};
}

SequenceTrack::Step SequenceTrack::told(std::uint64_t last) {
  if (last < _next) return {};
  if (_first == 0) {
    restart(last);
    return {};
  }
  if (last - _next >= longestJump) return {Kind::unbelieved};
  const std::uint64_t missing = jumpTo(last + 1, 0);
  --_next;  // that number itself is still to come
  return {Kind::next, missing};
}

/// Goes on behind that number; returns how many before it are missing.
std::uint64_t SequenceTrack::jumpTo(std::uint64_t number, std::uint64_t refused) {
  const std::uint64_t from = std::max(_next, std::min(_accounted, number));
  const std::uint64_t missing = number - from - std::min(number - from, refused);
  if (missing > 0) _gaps[_jumps++ % _gaps.size()] = {from, number, false};
  _next = number + 1;
  return missing;
}

SequenceTrack::Kind SequenceTrack::below(std::uint64_t number) {
  if (number >= _first) return skipped(number);
  _earlyCount = number == std::exchange(_earlyRun, number + 1) ? _earlyCount + 1 : 1;
  if (_earlyCount < proof) return Kind::early;
  restart(number);
  return Kind::back;
}

SequenceTrack::Kind SequenceTrack::skipped(std::uint64_t number) {
  const auto gap = std::ranges::find_if(
      _gaps, [&](const Gap& each) { return each.expected == number && number < each.end; });
  if (gap == _gaps.end()) return Kind::copy;
  ++gap->expected;
  if (!std::exchange(gap->heard, true)) return Kind::late;
  *gap = {};
  _accounted = std::max(_accounted, _next);
  _next = number + 1;
  return Kind::back;
}

void SequenceTrack::restart(std::uint64_t number) {
  *this = SequenceTrack();
  _first = number;
  _next = number + 1;
}

}  // namespace kestrel::streams
