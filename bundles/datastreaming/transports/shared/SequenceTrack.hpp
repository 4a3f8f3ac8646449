#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace kestrel::streams {

/// Follows the numbers of one producer's messages, as one consumer gets them: finds what is missing and what
/// comes twice. A plain object, not thread-safe.
///
/// Anybody who may publish on a stream can forge a number. So a jump ahead is bounded, and one that proves
/// false is taken back: a number that was skipped and comes after all, or several below the first one that
/// was ever heard, say that the jump was not the producer's own. Transports keep a producer's order, so
/// nothing of its own comes late.
class SequenceTrack {
 public:
  /// The longest jump that is believed; at a million messages a second it takes more than an hour.
  static constexpr std::uint64_t longestJump = 1ULL << 32;
  /// So many messages in a row from below the first one prove that one false.
  static constexpr std::uint32_t proof = 8;

  enum class Kind {
    next,        ///< the message is to be delivered
    back,        ///< the same, but it takes an earlier jump back
    copy,        ///< it came before
    early,       ///< it is older than the first one that was heard
    unbelieved,  ///< the jump to it would be too long; nothing has changed
  };
  struct Step {
    Kind kind = Kind::next;
    std::uint64_t missing = 0;  ///< so many messages before it were lost
  };

  /// A message of that number, which is not 0, has come; so many just before it were refused to the producer.
  [[nodiscard]] Step arrived(std::uint64_t number, std::uint64_t refusedBefore);
  /// The producer says that it has sent everything up to that number.
  [[nodiscard]] Step told(std::uint64_t last);

  /// The number of the first message that was heard or told of, 0 for none.
  [[nodiscard]] std::uint64_t first() const { return _first; }

 private:
  [[nodiscard]] bool goesBackTo(std::uint64_t number);
  void restart(std::uint64_t number);

  std::uint64_t _first = 0;
  std::uint64_t _next = 0;
  std::uint64_t _earlyRun = 0;  // the number that would continue the run below _first
  std::uint32_t _earlyCount = 0;
  std::array<std::uint64_t, 4> _skipped{};  // where the newest jumps began, 0 for none
  std::size_t _jumps = 0;
};

}  // namespace kestrel::streams
