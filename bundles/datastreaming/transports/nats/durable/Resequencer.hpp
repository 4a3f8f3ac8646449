#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>

#include "sequencing/Frame.hpp"

namespace kestrel::streams {

/// Puts stored messages back into the order of their producers. A message that could not be stored at first
/// is tried again, and one behind it may have been stored meanwhile. Not thread-safe.
template <class Item>
class Resequencer {
 public:
  struct Limits {
    Clock::duration patience;            ///< how long a gap is waited for
    std::uint64_t waitingBytes;          ///< past that nothing is waited for
    std::uint64_t (*cost)(const Item&);  ///< the memory that an item takes while it waits
    std::size_t producers = 1024;        ///< past that, those not heard of for longest are forgotten
  };

  explicit Resequencer(const Limits& limits) : _limits(limits) {}

  /// Something has come that belongs behind message `after` of the producer, and is its message `number` (0:
  /// none). What a producer sent before it was first heard of is not waited for. Comes out of next() in turn.
  void accept(std::uint64_t producer, std::uint64_t after, std::uint64_t number, Item item, TimePoint now) {
    Lane& lane = laneOf(producer, now);
    if (!lane.last || std::exchange(lane.excused, false)) lane.last = std::max(lane.last.value_or(0), after);
    const std::uint64_t cost = after > *lane.last ? _limits.cost(item) : 0;
    _waitingBytes += cost;
    lane.waiting.emplace(after, Waiting{number, std::move(item), now, cost});
    serve(lane);
    if (_waitingBytes <= _limits.waitingBytes) return;
    for (auto& [each, crowded] : _lanes) release(crowded, TimePoint::max());
  }

  /// Older messages were removed, and nobody knows whose: a gap that is waited for, or that a producer's next
  /// message shows, is given up.
  void giveUpGaps() {
    for (auto& [producer, lane] : _lanes) {
      release(lane, TimePoint::max());
      lane.excused = true;
    }
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

  [[nodiscard]] std::size_t producersKnown() const { return _lanes.size(); }

 private:
  struct Waiting {
    std::uint64_t number;
    Item item;
    TimePoint since;
    std::uint64_t cost;
  };
  struct Lane {
    std::optional<std::uint64_t> last;  // the highest number that has come out
    bool excused = false;               // the next gap is not waited for
    TimePoint used;
    std::multimap<std::uint64_t, Waiting> waiting;
  };

  Lane& laneOf(std::uint64_t producer, TimePoint now) {
    const auto [found, added] = _lanes.try_emplace(producer);
    Lane& lane = found->second;
    lane.used = now;
    if (added && _lanes.size() > _limits.producers) forgetOldest(producer);
    return lane;
  }

  /// One that is heard of again is taken for a new one. What waits is never forgotten; its bytes are bounded.
  void forgetOldest(std::uint64_t except) {
    auto oldest = _lanes.end();
    for (auto at = _lanes.begin(); at != _lanes.end(); ++at) {
      if (at->first == except || !at->second.waiting.empty()) continue;
      if (oldest == _lanes.end() || at->second.used < oldest->second.used) oldest = at;
    }
    if (oldest != _lanes.end()) _lanes.erase(oldest);
  }

  void serve(Lane& lane) {
    for (auto first = lane.waiting.begin(); first != lane.waiting.end() && first->first <= *lane.last;
         first = lane.waiting.begin()) {
      lane.last = std::max(*lane.last, first->second.number);
      _waitingBytes -= first->second.cost;
      _ready.push_back(std::move(first->second.item));
      lane.waiting.erase(first);
    }
  }

  void release(Lane& lane, TimePoint now) {
    while (!lane.waiting.empty() &&
           (now == TimePoint::max() || now - lane.waiting.begin()->second.since >= _limits.patience)) {
      lane.last = lane.waiting.begin()->first;
      serve(lane);
    }
  }

  const Limits _limits;
  std::unordered_map<std::uint64_t, Lane> _lanes;
  std::uint64_t _waitingBytes = 0;
  std::deque<Item> _ready;
};

}  // namespace kestrel::streams
