#include "transports/nats/durable/PublishLedger.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace kestrel::streams {

void PublishLedger::add(Entry entry) {
  _bytes += entry.bytes;
  _entries.push_back(std::move(entry));
}

std::shared_ptr<natsMsg> PublishLedger::next(TimePoint now) {
  if (_published == _entries.size() || now < _pausedUntil || _published >= _limits.inFlight) return nullptr;
  const Entry& entry = _entries[_published];
  if (_published > 0 && _publishedBytes + entry.bytes > _limits.inFlightBytes) return nullptr;
  if (_published == 0) _lastProgress = now;
  ++_published;
  _publishedBytes += entry.bytes;
  return entry.message;
}

void PublishLedger::unpublish() {
  --_published;
  _publishedBytes -= _entries[_published].bytes;
}

std::optional<PublishLedger::Entry> PublishLedger::stored(std::uint64_t sequence) {
  const auto found = std::lower_bound(_entries.begin(), _entries.end(), sequence,
                                      [](const Entry& entry, std::uint64_t s) { return entry.sequence < s; });
  if (found == _entries.end() || found->sequence != sequence) return std::nullopt;
  Entry entry = std::move(*found);
  const bool wasPublished = static_cast<std::size_t>(found - _entries.begin()) < _published;
  _entries.erase(found);
  _bytes -= entry.bytes;
  if (wasPublished) {
    --_published;
    _publishedBytes -= entry.bytes;
  }
  _lastProgress = TimePoint{};  // the next tick measures anew
  return entry;
}

void PublishLedger::failed(std::uint64_t sequence, const std::string& why, TimePoint now) {
  const bool known = std::any_of(_entries.begin(), _entries.end(),
                                 [&](const Entry& entry) { return entry.sequence == sequence; });
  if (known) (void)suspend(why, now);
}

bool PublishLedger::suspend(const std::string& why, TimePoint now) {
  if (_published == 0) return !_entries.empty();
  _lastFailure = why;
  restart();
  _pausedUntil = now + _limits.pause;
  return true;
}

void PublishLedger::restart() {
  _published = 0;
  _publishedBytes = 0;
}

std::vector<PublishLedger::Entry> PublishLedger::tick(TimePoint now) {
  if (_published > 0) {
    if (_lastProgress == TimePoint{}) _lastProgress = now;
    if (now - _lastProgress >= _limits.answer) {
      _lastFailure = "the server did not answer";
      restart();
    }
  }
  std::vector<Entry> expired;
  while (!_entries.empty() && now - _entries.front().added >= _limits.retry) {
    expired.push_back(std::move(_entries.front()));
    _entries.pop_front();
  }
  if (!expired.empty()) recount();
  return expired;
}

std::vector<PublishLedger::Entry> PublishLedger::takeLargerThan(std::uint64_t wireSize) {
  std::vector<Entry> taken;
  const auto kept = std::stable_partition(_entries.begin(), _entries.end(),
                                          [&](const Entry& entry) { return entry.wireSize <= wireSize; });
  std::move(kept, _entries.end(), std::back_inserter(taken));
  _entries.erase(kept, _entries.end());
  recount();
  return taken;
}

std::vector<PublishLedger::Entry> PublishLedger::takeAll() {
  std::vector<Entry> all(std::make_move_iterator(_entries.begin()), std::make_move_iterator(_entries.end()));
  _entries.clear();
  recount();
  return all;
}

void PublishLedger::recount() {
  restart();
  _bytes = 0;
  for (const Entry& entry : _entries) _bytes += entry.bytes;
}

}  // namespace kestrel::streams
