#include "BlockCache.hpp"

#include <algorithm>
#include <bit>

#include "Mapping.hpp"

namespace kestrel::memory {

std::size_t BlockCache::capacityFor(std::size_t size) noexcept {
  const std::size_t step = std::max(std::bit_floor(size) / 4, size > hugePageSize ? hugePageSize : pageSize);
  return (size + step - 1) / step * step;
}

BlockCache::Block BlockCache::take(std::size_t capacity, bool mappable) {
  const auto found = _byKind.find({capacity, mappable});
  if (found == _byKind.end() || found->second.empty()) return {};
  const auto newest = found->second.back();
  found->second.pop_back();
  if (found->second.empty()) _byKind.erase(found);
  const Block block = *newest;
  _ages.erase(newest);
  _kept -= capacity;
  return block;
}

void BlockCache::keep(Block block, Clock::time_point now, Blocks& surplus) {
  shrinkTo(_limit - block.capacity, surplus);
  auto& same = _byKind[kindOf(block)];
  same.reserve(same.size() + 1);  // all that can fail comes before anything is changed
  block.since = now;
  same.push_back(_ages.insert(_ages.end(), block));
  _kept += block.capacity;
}

void BlockCache::expire(Clock::time_point before, Blocks& surplus) noexcept {
  while (!_ages.empty() && _ages.front().since < before) dropOldest(surplus);
}

void BlockCache::setLimit(std::size_t limit, Blocks& surplus) noexcept {
  _limit = limit;
  shrinkTo(limit, surplus);
}

void BlockCache::shrinkTo(std::size_t bytes, Blocks& surplus) noexcept {
  while (_kept > bytes) dropOldest(surplus);
}

void BlockCache::dropOldest(Blocks& surplus) noexcept {
  const std::size_t capacity = _ages.front().capacity;
  const auto same = _byKind.find(kindOf(_ages.front()));
  same->second.erase(same->second.begin());
  if (same->second.empty()) _byKind.erase(same);
  surplus.splice(surplus.end(), _ages, _ages.begin());
  _kept -= capacity;
}

}  // namespace kestrel::memory
