#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "sequencing/Frame.hpp"
#include "sequencing/PayloadAssembly.hpp"
#include "sequencing/SequenceTrack.hpp"

namespace kestrel::streams {

/// Makes whole payloads of the frames of many producers, each producer's on its own, and gives each message
/// or payload out when it is whole: nobody waits for anybody else. Finds what is missing.
///
/// A plain object without threads or clock: frames, events and times go in, actions are taken out with
/// next(). Not thread-safe.
class PayloadSequencer {
 public:
  struct Limits {
    Clock::duration silence = std::chrono::seconds(10);  ///< after which an unfinished payload is given up
    std::uint64_t payloadBytes = 2ULL << 30;             ///< most bytes of one payload
    /// Most bytes of all unfinished payloads, with what they cost beside; past it the largest is given up.
    std::uint64_t heldBytes = (2ULL << 30) + (256ULL << 20);
    std::size_t producers = 1024;  ///< past that, idle producers are forgotten
  };

  /// Hand the message, or the payload joined of its pieces, to the data callback.
  struct Deliver {
    Frame frame;
  };
  /// Count messages that were accepted and will not be delivered; report it if there is a text.
  struct Loss {
    std::uint64_t messages = 0;
    std::string text;
  };
  /// Count a message that came twice.
  struct Copy {};
  using Action = std::variant<Deliver, Loss, Copy>;

  PayloadSequencer() : PayloadSequencer(Limits{}) {}
  explicit PayloadSequencer(const Limits& limits) : _limits(limits) {}

  /// From that time on every message of the stream is for this consumer.
  void begin(TimePoint now) { _begun = now; }
  /// Frames come in the order of their arrival.
  void accept(Frame frame);
  /// Every frame that arrived before that time has been accepted.
  void tick(TimePoint now);
  /// Nothing could arrive for that long, so nobody was silent.
  void excuse(Clock::duration time);
  /// The producer says how far it has come: the number of the message that it sent last, and when it sent its
  /// first one, if it told that.
  void producerReached(std::uint64_t producer, std::uint64_t last, std::optional<TimePoint> began,
                       TimePoint now);
  /// The producer has gone; no frame of it will follow.
  void producerVanished(std::uint64_t producer);
  /// The producer has given up the payload that it had begun.
  void payloadAbandoned(std::uint64_t producer);

  [[nodiscard]] std::optional<Action> next();

  /// When tick() may have something to do, if ever.
  [[nodiscard]] std::optional<TimePoint> deadline() const;
  [[nodiscard]] std::size_t producersKnown() const { return _producers.size(); }
  /// How many messages are held for payloads that are not whole.
  [[nodiscard]] std::uint64_t messagesHeld() const { return _heldMessages; }

 private:
  using Order = std::list<std::uint64_t>;  // of producers
  /// What is known of one producer.
  struct Intake {
    std::uint64_t id = 0;
    SequenceTrack numbers;
    bool beginningKnown = false;          // what it sent before its first message that was heard is accounted
    std::uint64_t dropped = 0;            // the payload whose remaining pieces are not wanted, 0 for none
    std::optional<PayloadAssembly> open;  // the payload that arrives
    Order* order = nullptr;               // the one that it stands in
    Order::iterator place;
  };

  Intake& intakeOf(std::uint64_t producer);
  static void moveTo(Order& order, Intake& intake);
  void makeSpace();
  void judgeBeginning(Intake& intake, std::uint64_t unheard, std::optional<TimePoint> began);
  [[nodiscard]] bool follow(Intake& intake, Frame& frame);
  void advance(Intake& intake, const Frame& frame, std::uint64_t missing);
  [[nodiscard]] bool isUnwanted(Intake& intake, Frame& frame);
  [[nodiscard]] std::string faultOf(const Intake& intake, const Frame& frame) const;
  [[nodiscard]] std::string chunkFaultOf(const Intake& intake, const Frame& frame) const;
  void refuse(Intake& intake, Frame& frame, const std::string& why);
  void join(Intake& intake, Frame frame);
  [[nodiscard]] bool add(Intake& intake, Frame& frame);
  // Into the sums over all unfinished payloads, and out of them before the payload changes.
  void enter(const Intake& intake);
  void remove(const Intake& intake);
  void makeRoom();
  void giveUp(Intake& intake, std::uint64_t lostBefore, const std::string& why);
  PayloadAssembly close(Intake& intake);
  void lose(std::uint64_t messages, std::string text = {});

  const Limits _limits;
  std::optional<TimePoint> _begun;  // from when on it is known who has begun
  TimePoint _latest{};              // time that anything came
  std::unordered_map<std::uint64_t, Intake> _producers;
  Order _assembling;  // those with an unfinished payload, the one whose newest piece is the oldest first
  Order _idle;        // the others, the one heard longest ago first
  Order _gone;        // and those that have gone, for their news may come twice
  std::set<std::pair<std::uint64_t, std::uint64_t>> _sizes;  // cost and producer of each unfinished payload
  std::uint64_t _held = 0;                                   // the sum of those costs
  std::uint64_t _heldMessages = 0;
  std::vector<Action> _actions;  // the first so many have been given
  std::size_t _given = 0;
};

}  // namespace kestrel::streams
