#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>
#include <variant>

#include "transports/shared/Frame.hpp"

namespace kestrel::streams {

/// Brings the frames of many producers into an order in which the pieces of each payload come without a gap
/// and without pieces of others between them, and finds payloads that cannot be completed.
///
/// A plain object without threads or clock: frames, events and times go in, actions are taken out with
/// next(). Not thread-safe. docs/architecture.md tells the rules.
class PayloadSequencer {
 public:
  struct Limits {
    Clock::duration silence = std::chrono::seconds(10);  ///< after which an unfinished payload is given up
    std::uint64_t payloadBytes = 2ULL << 30;             ///< most bytes of one payload
    std::uint64_t waitingBytes = UINT64_MAX;             ///< most bytes of frames that wait for their turn
    std::size_t producers = 1024;                        ///< most producers remembered, idle ones at least
    Clock::duration forgetAfter = std::chrono::minutes(10);  ///< idle producers beyond that may be forgotten
  };

  /// Hand the frame to the data callback.
  struct Deliver {
    Frame frame;
  };
  /// Hand over an empty last piece: the payload of which pieces were delivered cannot be completed.
  struct EndPayload {
    Stamp stamp;  ///< of the payload's producer
  };
  /// Count messages that were accepted and will not be delivered; report it if there is a text.
  struct Loss {
    std::uint64_t messages = 0;
    std::string text;
  };
  using Action = std::variant<Deliver, EndPayload, Loss>;

  PayloadSequencer() : PayloadSequencer(Limits{}) {}
  explicit PayloadSequencer(const Limits& limits) : _limits(limits) {}

  void accept(Frame frame);
  /// Every frame that arrived before that time has been accepted.
  void tick(TimePoint now);
  /// The producer has gone; no frame of it will follow.
  void producerVanished(std::uint64_t producer);
  /// The producer has given up the payload that it had begun.
  void payloadAbandoned(std::uint64_t producer);
  /// The data callback failed on the frame of that stamp, which was the newest delivered one.
  void deliveryFailed(const Stamp& stamp);

  [[nodiscard]] std::optional<Action> next();

  /// When tick() may have something to do, if ever.
  [[nodiscard]] std::optional<TimePoint> deadline() const;
  /// The producer of the payload in progress, 0 for none.
  [[nodiscard]] std::uint64_t activeProducer() const { return _active; }
  [[nodiscard]] std::size_t producersKnown() const { return _lanes.size(); }

 private:
  using Entry = std::variant<Frame, EndPayload>;

  /// What is known of one producer.
  struct Lane {
    std::uint64_t nextSequence = 0;
    TimePoint lastArrival;
    TimePoint lastChunk;
    std::uint64_t payload = 0;    // the chunked payload that arrives, while open
    std::uint64_t bytes = 0;      // of it so far
    std::uint32_t nextIndex = 0;  // of it
    bool open = false;
    std::uint64_t dropped = 0;  // the payload whose remaining pieces are not wanted, 0 for none
    std::deque<Entry> waiting;  // until the payload in progress, of another producer, has ended
    bool queued = false;        // it has a place in _turns
    bool vanished = false;
  };

  Lane& laneOf(const Frame& frame);
  void makeSpace(TimePoint now);
  bool isDuplicate(Lane& lane, Frame& frame);
  void checkSequence(Lane& lane, const Stamp& stamp);
  [[nodiscard]] std::string faultOf(const Frame& frame) const;
  void refuse(Lane& lane, Frame& frame, const std::string& why);
  void acceptChunk(Lane& lane, Frame frame);
  bool continuesPayload(Lane& lane, const Stamp& stamp);
  void giveUp(std::uint64_t producer, Lane& lane, std::uint64_t alreadyLost, const std::string& why);
  std::uint64_t tear(std::uint64_t producer, Lane& lane);
  std::uint64_t purgeWaiting(Lane& lane);

  void schedule(std::uint64_t producer, Lane& lane, Entry entry);
  bool emit(std::uint64_t producer, Entry entry);
  void serveTurns();
  bool drain(std::uint64_t producer, Lane& lane);
  void lose(std::uint64_t messages, std::string text = {});

  const Limits _limits;
  std::unordered_map<std::uint64_t, Lane> _lanes;
  std::deque<std::uint64_t> _turns;  // producers with something waiting, in the order in which they began to
  std::uint64_t _waitingBytes = 0;
  std::uint64_t _active = 0;            // the producer whose payload is being delivered
  std::optional<TimePoint> _nextCheck;  // no payload falls silent before that
  std::deque<Action> _ready;
};

}  // namespace kestrel::streams
