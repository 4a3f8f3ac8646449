#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>
#include <variant>

#include "transports/shared/Frame.hpp"
#include "transports/shared/PayloadTurns.hpp"

namespace kestrel::streams {

/// Brings the frames of many producers into an order in which the pieces of each payload come without a gap
/// and without pieces of others between them, and finds payloads that cannot be completed.
///
/// A plain object without threads or clock: frames, events and times go in, actions are taken out with
/// next(). Not thread-safe.
class PayloadSequencer {
 public:
  struct Limits {
    Clock::duration silence = std::chrono::seconds(10);  ///< after which an unfinished payload is given up
    std::uint64_t payloadBytes = 2ULL << 30;             ///< most bytes of one payload
    std::uint64_t waitingBytes = UINT64_MAX;             ///< most bytes of frames that wait for their turn
    std::size_t producers = 1024;                        ///< past that, idle producers are forgotten
    Clock::duration forgetAfter = std::chrono::minutes(10);  ///< how long a producer is idle to be so
  };

  /// Hand the frame to the data callback.
  struct Deliver {
    Frame frame;
  };
  /// Hand over an empty last piece: the payload of which pieces were delivered cannot be completed.
  using EndPayload = PayloadTurns::EndPayload;
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
  /// The data callback failed on the frame of that stamp, which next() gave last.
  void deliveryFailed(const Stamp& stamp);

  [[nodiscard]] std::optional<Action> next();

  /// When tick() may have something to do, if ever.
  [[nodiscard]] std::optional<TimePoint> deadline() const { return _nextCheck; }
  /// The producer of the payload in progress, 0 for none.
  [[nodiscard]] std::uint64_t activeProducer() const { return _turns.active(); }
  [[nodiscard]] std::size_t producersKnown() const { return _producers.size(); }

 private:
  /// What is known of one producer.
  struct Intake {
    std::uint64_t id = 0;
    std::uint64_t firstSequence = 0;  // of those that this consumer saw
    std::uint64_t nextSequence = 0;
    TimePoint lastArrival;
    TimePoint lastChunk;
    std::uint64_t payload = 0;    // the chunked payload that arrives, while open
    std::uint64_t bytes = 0;      // of it so far
    std::uint32_t nextIndex = 0;  // of it
    bool open = false;
    std::uint64_t dropped = 0;  // the payload whose remaining pieces are not wanted, 0 for none
  };

  Intake& intakeOf(const Frame& frame);
  void makeSpace(TimePoint now);
  bool isLate(const Intake& intake, Frame& frame);
  void checkGap(Intake& intake, const Stamp& stamp);
  [[nodiscard]] std::string faultOf(const Intake& intake, const Frame& frame) const;
  [[nodiscard]] std::string chunkFaultOf(const Intake& intake, const Frame& frame) const;
  void refuse(Intake& intake, Frame& frame, const std::string& why);
  void noteChunk(Intake& intake, const Frame& frame);
  bool isUnwanted(Intake& intake, Frame& frame);
  void giveUp(Intake& intake, std::uint64_t lostBefore, const std::string& why);
  std::uint64_t tear(Intake& intake);
  void lose(std::uint64_t messages, std::string text = {});

  const Limits _limits;
  std::unordered_map<std::uint64_t, Intake> _producers;
  PayloadTurns _turns;
  std::deque<Loss> _losses;
  std::optional<TimePoint> _nextCheck;  // no open payload falls silent before that
};

}  // namespace kestrel::streams
