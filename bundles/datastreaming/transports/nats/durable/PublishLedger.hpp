#pragma once

#include <cstdint>
#include <deque>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sequencing/Frame.hpp"
#include "transports/nats/NatsHandles.hpp"

namespace kestrel::streams {

/// The messages of one producer that are not known to be stored yet, in their order, and which of them to
/// publish next.
///
/// A plain object without threads or clock. Whatever goes wrong, publishing begins again with the oldest one;
/// the server knows those that it has by their ids. Not thread-safe.
class PublishLedger {
 public:
  struct Limits {
    std::uint64_t bytes = 256ULL << 20;         ///< most bytes kept
    std::uint64_t inFlightBytes = 16ULL << 20;  ///< most bytes published and unanswered; one message always
    std::size_t inFlight = 1024;                ///< most messages published and unanswered
    Clock::duration answer = std::chrono::seconds(5);        ///< how long an answer may take
    Clock::duration pause = std::chrono::milliseconds(250);  ///< before trying again after an error
    Clock::duration retry = std::chrono::seconds(120);       ///< how long a message is tried
  };

  struct Entry {
    std::uint64_t sequence = 0;
    std::shared_ptr<natsMsg> message;
    std::uint64_t bytes = 0;
    TimePoint added;
    std::optional<std::promise<std::string>> stored;  ///< told the number under which it is stored
    std::uint64_t wireSize = 0;                       ///< headers and bytes
  };

  explicit PublishLedger(const Limits& limits) : _limits(limits) {}

  [[nodiscard]] bool hasRoom(std::uint64_t bytes) const { return _bytes + bytes <= _limits.bytes; }
  [[nodiscard]] std::uint64_t bytes() const { return _bytes; }
  [[nodiscard]] const Limits& limits() const { return _limits; }
  [[nodiscard]] bool empty() const { return _entries.empty(); }

  void add(Entry entry);

  /// The message to publish now, if any; it counts as published.
  [[nodiscard]] std::shared_ptr<natsMsg> next(TimePoint now);
  /// The one that next() gave last has not been published after all.
  void unpublish();

  /// The server has stored it. Returns its entry, or nothing if that was known.
  [[nodiscard]] std::optional<Entry> stored(std::uint64_t sequence);
  /// The server could not store it.
  void failed(std::uint64_t sequence, const std::string& why, TimePoint now);
  /// The server cannot store anything at the moment. Returns whether it had anything to store.
  bool suspend(const std::string& why, TimePoint now);
  /// What was published may not have arrived.
  void restart();

  /// Notices answers that do not come. Returns the entries that are given up.
  [[nodiscard]] std::vector<Entry> tick(TimePoint now);
  /// Gives up what is larger on the wire, after restart().
  [[nodiscard]] std::vector<Entry> takeLargerThan(std::uint64_t wireSize);
  /// Gives everything up.
  [[nodiscard]] std::vector<Entry> takeAll();

  /// Why the newest attempt failed.
  [[nodiscard]] const std::string& lastFailure() const { return _lastFailure; }

 private:
  void recount();

  const Limits _limits;
  std::deque<Entry> _entries;
  std::size_t _published = 0;  // so many of the first ones
  std::uint64_t _publishedBytes = 0;
  std::uint64_t _bytes = 0;
  TimePoint _pausedUntil{};
  TimePoint _lastProgress{};
  std::string _lastFailure;
};

}  // namespace kestrel::streams
