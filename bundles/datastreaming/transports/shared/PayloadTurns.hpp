#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <unordered_map>
#include <variant>

#include "transports/shared/Frame.hpp"

namespace kestrel::streams {

/// Lets one payload through at a time: while it is in progress, pieces of other producers wait, and so does
/// whatever comes behind them from the same producer; other plain messages pass. Payloads get their turn in
/// the order in which they began to wait.
///
/// It trusts what it is given: the entries of a producer come in order, and each payload that has begun ends
/// with its last piece or with an EndPayload. A plain object, not thread-safe.
class PayloadTurns {
 public:
  /// Stands for the missing rest of a payload of which pieces were let through.
  struct EndPayload {
    Stamp stamp;
  };
  using Entry = std::variant<Frame, EndPayload>;

  void add(Entry entry);
  [[nodiscard]] std::optional<Entry> next();

  /// Takes back the pieces of a payload of which none has been let through, and returns how many they were;
  /// nothing if the payload has begun.
  std::optional<std::uint64_t> withdraw(std::uint64_t producer, std::uint64_t payload);

  /// Ends the payload of this stamp behind the entry taken last, and returns how many of its pieces, not yet
  /// taken by next(), are gone.
  std::uint64_t cutShort(const Stamp& stamp);

  /// Whether such a frame would have to wait.
  [[nodiscard]] bool wouldWait(const Stamp& stamp) const;
  [[nodiscard]] bool hasWaiting(std::uint64_t producer) const { return _lanes.contains(producer); }
  [[nodiscard]] std::uint64_t waitingBytes() const { return _waitingBytes; }
  /// The producer of the payload in progress, 0 for none.
  [[nodiscard]] std::uint64_t active() const { return _active; }

 private:
  bool emit(Entry entry);
  void serve();
  bool drain(std::deque<Entry>& lane);

  std::unordered_map<std::uint64_t, std::deque<Entry>> _lanes;  // what waits of each producer, never empty
  std::deque<std::uint64_t> _turns;                             // the producers of _lanes in order
  std::deque<Entry> _ready;
  std::uint64_t _waitingBytes = 0;
  std::uint64_t _active = 0;
  std::uint64_t _activePayload = 0;
};

}  // namespace kestrel::streams
