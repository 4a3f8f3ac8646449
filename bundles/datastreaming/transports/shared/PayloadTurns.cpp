#include "transports/shared/PayloadTurns.hpp"

#include <algorithm>
#include <utility>

namespace kestrel::streams {

namespace {

const Stamp& stampOf(const PayloadTurns::Entry& entry) {
  if (const auto* frame = std::get_if<Frame>(&entry)) return frame->stamp;
  return std::get<PayloadTurns::EndPayload>(entry).stamp;
}

bool belongs(const PayloadTurns::Entry& entry, std::uint64_t producer, std::uint64_t payload) {
  const Stamp& stamp = stampOf(entry);
  return stamp.chunked && stamp.producer == producer && stamp.payload == payload;
}

std::uint64_t sizeOf(const PayloadTurns::Entry& entry) {
  const auto* frame = std::get_if<Frame>(&entry);
  return frame != nullptr ? frame->size : 0;
}

/// Throws away what belongs to the payload; returns the number and the bytes of the pieces among it.
std::pair<std::uint64_t, std::uint64_t> discard(std::deque<PayloadTurns::Entry>& entries,
                                                std::uint64_t producer, std::uint64_t payload) {
  std::uint64_t pieces = 0;
  std::uint64_t bytes = 0;
  for (auto& entry : entries) {
    auto* frame = std::get_if<Frame>(&entry);
    if (frame == nullptr || !belongs(entry, producer, payload)) continue;
    settle(frame->receipt);
    bytes += frame->size;
    ++pieces;
  }
  std::erase_if(entries, [&](const PayloadTurns::Entry& entry) { return belongs(entry, producer, payload); });
  return {pieces, bytes};
}

}  // namespace

bool PayloadTurns::wouldWait(const Stamp& stamp) const {
  if (!_lanes.empty() && hasWaiting(stamp.producer)) return true;
  return stamp.chunked && _active != 0 && _active != stamp.producer;
}

void PayloadTurns::add(Entry entry) {
  const Stamp& stamp = stampOf(entry);
  if (!wouldWait(stamp)) {
    if (emit(std::move(entry))) serve();
    return;
  }
  const auto [lane, isNew] = _lanes.try_emplace(stamp.producer);
  if (isNew) _turns.push_back(stamp.producer);
  _waitingBytes += sizeOf(entry);
  lane->second.push_back(std::move(entry));
}

std::optional<PayloadTurns::Entry> PayloadTurns::next() {
  if (_ready.empty()) return std::nullopt;
  std::optional<Entry> entry{std::move(_ready.front())};
  _ready.pop_front();
  return entry;
}

/// Lets an entry through; returns whether it ends a chunked payload.
bool PayloadTurns::emit(Entry entry) {
  const Stamp& stamp = stampOf(entry);
  const bool ends = stamp.chunked && stamp.last;
  if (stamp.chunked) {
    _active = ends ? 0 : stamp.producer;
    _activePayload = stamp.payload;
  }
  _ready.push_back(std::move(entry));
  return ends;
}

void PayloadTurns::serve() {
  while (_active == 0 && !_turns.empty()) {
    const std::uint64_t producer = _turns.front();
    _turns.pop_front();
    const auto lane = _lanes.find(producer);
    if (drain(lane->second)) {
      _lanes.erase(lane);
    } else {
      _turns.push_back(producer);  // its next payload waits behind those of the others
    }
  }
}

/// Lets one payload of the lane through, or as much of it as is there, and the plain messages before it.
/// Returns whether the lane is empty.
bool PayloadTurns::drain(std::deque<Entry>& lane) {
  bool ended = false;
  while (!ended && !lane.empty()) {
    Entry entry = std::move(lane.front());
    lane.pop_front();
    _waitingBytes -= sizeOf(entry);
    ended = emit(std::move(entry));
  }
  return lane.empty();
}

std::optional<std::uint64_t> PayloadTurns::withdraw(std::uint64_t producer, std::uint64_t payload) {
  const auto found = _lanes.find(producer);
  if (found == _lanes.end()) return std::nullopt;
  auto& lane = found->second;
  const bool isWhole = std::any_of(lane.begin(), lane.end(), [&](const Entry& entry) {
    return belongs(entry, producer, payload) && stampOf(entry).chunkIndex == 0;
  });
  if (!isWhole) return std::nullopt;
  const auto [pieces, bytes] = discard(lane, producer, payload);
  _waitingBytes -= bytes;
  if (lane.empty()) {
    _lanes.erase(found);
    std::erase(_turns, producer);
  }
  return pieces;
}

std::uint64_t PayloadTurns::cutShort(const Stamp& stamp) {
  const std::uint64_t pieces = discard(_ready, stamp.producer, stamp.payload).first;
  Stamp end = stamp;
  end.last = true;
  _ready.push_front(EndPayload{end});
  if (_active == stamp.producer && _activePayload == stamp.payload) {
    _active = 0;
    serve();
  }
  return pieces;
}

}  // namespace kestrel::streams
