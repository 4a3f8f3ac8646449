#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "transports/nats/durable/DurablePosition.hpp"
#include "transports/nats/durable/ReaderSubjects.hpp"
#include "transports/nats/durable/Resequencer.hpp"
#include "transports/nats/wire/MessageHeaders.hpp"

namespace kestrel::streams {

/// Decides what becomes of what the server sends to the reader of a durable stream: what is new, what lacks,
/// in which order it is handed on, and what is to be acknowledged. A plain object; for one thread.
template <class Item>
class DurableIntake {
 public:
  explicit DurableIntake(const typename Resequencer<Item>::Limits& limits) : _order(limits) {}

  /// The store is read for the first time; messages up to that number were sent to an earlier consumer.
  void startAfter(std::uint64_t number) { _position.startAfter(number); }
  /// Another store, which counts from 1 again, has taken the place of the one that was read.
  void storeReplaced() { _position = DurablePosition(); }
  /// A new reader counts from 1, and begins with everything unacknowledged.
  void readerReplaced() { _count = _reached = 0; }

  struct Arrival {
    bool broken = false;   ///< something before it was dropped on its way to us; a new reader gets it all
    bool fresh = false;    ///< it must be put in
    bool settled = false;  ///< it was dealt with before; the acknowledgement has to be repeated
    std::uint64_t expired = 0;  ///< how many before it were removed unread
  };
  /// A stored message has come; it is acknowledged at that subject from now on.
  [[nodiscard]] Arrival arrived(const DeliveryNumbers& numbers, std::string acknowledgeTo) {
    if (numbers.count != ++_count) return {.broken = true};
    _reached = std::max(_reached, numbers.stored);  // one that was forgotten may come again
    const auto arrival = _position.arrived(numbers.stored, std::move(acknowledgeTo));
    // Those of producers known here are counted by their own numbers.
    if (arrival.expired > 0) _order.giveUpGaps();
    return {.fresh = arrival.fresh, .settled = arrival.settled, .expired = arrival.expired};
  }
  /// Whether the server has sent as many messages as have come.
  [[nodiscard]] bool isComplete(const std::string& sent) const { return std::to_string(_count) == sent; }
  /// The numbers of a message that comes without, and is stored under that one.
  [[nodiscard]] DeliveryNumbers unnumbered(std::uint64_t stored) const { return {stored, _count + 1}; }
  /// The highest number that this reader was sent.
  [[nodiscard]] std::uint64_t reached() const { return _reached; }

  void put(const MessageIdentity& identity, Item item, TimePoint now) {
    if (const auto* stamp = std::get_if<Stamp>(&identity)) {
      const std::uint64_t number = stamp->sequence;
      const std::uint64_t after = number - 1 - std::min<std::uint64_t>(stamp->refusedBefore, number - 1);
      _order.accept(stamp->producer, after, number, std::move(item), now);
    } else if (const auto* event = std::get_if<ProducerEvent>(&identity)) {
      _order.accept(event->producer, event->after, 0, std::move(item), now);
      if (event->kind == ProducerEvent::Kind::gone) _order.forget(event->producer);
    } else {
      _order.accept(0, 0, 0, std::move(item), now);
    }
  }
  /// Everything that came before the time that was reached has been put in: what lacks for long is given up.
  void tick(TimePoint now, TimePoint reached) {
    if (now < _nextTick) return;
    _nextTick = now + interval;
    _order.tick(reached);
  }
  /// What is to be handed on now, if anything.
  [[nodiscard]] std::optional<Item> next() { return _order.next(); }

  /// The message has been dealt with. Returns where to say so, empty if nobody wants to know.
  [[nodiscard]] std::string settle(std::uint64_t number) { return _position.settle(number); }

 private:
  static constexpr std::chrono::milliseconds interval{125};  // looking at every gap costs time

  DurablePosition _position;
  Resequencer<Item> _order;
  std::uint64_t _count = 0;    // of what this reader was sent
  std::uint64_t _reached = 0;  // the highest number of that
  TimePoint _nextTick{};
};

}  // namespace kestrel::streams
