#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>

#include "transports/shared/Frame.hpp"

namespace kestrel::streams {

/// Puts stored messages back into the order of their producers. A message that could not be stored at first
/// is tried again, and one behind it may have been stored meanwhile. Not thread-safe.
template <class Item>
class Resequencer {
 public:
  explicit Resequencer(Clock::duration patience) : _patience(patience) {}

  /// Something has come that belongs behind message `after` of the producer, and is its message `number` (0:
  /// none). What a producer sent before it was first heard of is not waited for. Comes out of next() in turn.
  void accept(std::uint64_t producer, std::uint64_t after, std::uint64_t number, Item item, TimePoint now) {
    Lane& lane = _lanes[producer];
    if (!lane.last) lane.last = after;
    lane.waiting.emplace(after, Waiting{number, std::move(item), now});
    serve(lane);
  }

  /// Nothing older can come any more: gaps that are waited for are given up.
  void giveUpGaps() {
    for (auto& [producer, lane] : _lanes) release(lane, TimePoint::max());
  }

  /// Gives up the gaps that have been waited for long enough.
  void tick(TimePoint now) {
    for (auto& [producer, lane] : _lanes) release(lane, now);
  }

  /// The producer has gone.
  void forget(std::uint64_t producer) {
    const auto found = _lanes.find(producer);
    if (found != _lanes.end() && found->second.waiting.empty()) _lanes.erase(found);
  }

  [[nodiscard]] std::optional<Item> next() {
    if (_ready.empty()) return std::nullopt;
    std::optional<Item> item(std::move(_ready.front()));
    _ready.pop_front();
    return item;
  }

 private:
  struct Waiting {
    std::uint64_t number;
    Item item;
    TimePoint since;
  };
  struct Lane {
    std::optional<std::uint64_t> last;  // the highest number that has come out
    std::multimap<std::uint64_t, Waiting> waiting;
  };

  void serve(Lane& lane) {
    for (auto first = lane.waiting.begin(); first != lane.waiting.end() && first->first <= *lane.last;
         first = lane.waiting.begin()) {
      lane.last = std::max(*lane.last, first->second.number);
      _ready.push_back(std::move(first->second.item));
      lane.waiting.erase(first);
    }
  }

  void release(Lane& lane, TimePoint now) {
    while (!lane.waiting.empty() &&
           (now == TimePoint::max() || now - lane.waiting.begin()->second.since >= _patience)) {
      lane.last = lane.waiting.begin()->first;
      serve(lane);
    }
  }

  const Clock::duration _patience;
  std::unordered_map<std::uint64_t, Lane> _lanes;
  std::deque<Item> _ready;
};

}  // namespace kestrel::streams
