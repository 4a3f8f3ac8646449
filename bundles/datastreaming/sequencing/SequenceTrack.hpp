#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace kestrel::streams {

/// Follows the numbers of one producer's messages, as one consumer gets them: finds what is missing and what
/// comes twice. A plain object, not thread-safe.
///
/// Anybody who may publish on a stream can forge a number. So a jump ahead is bounded, and one that proves
/// false is taken back: two numbers in a row that were skipped and come after all, or several below the first
/// one that was ever heard, say that the jump was not the producer's own. A single one that comes late stays
/// lost: it has been counted, and what came after it has been delivered.
class SequenceTrack {
 public:
  /// The longest jump that is believed; at a million messages a second it takes more than an hour.
  static constexpr std::uint64_t longestJump = 1ULL << 32;
  /// So many messages in a row from below the first one prove that one false.
  static constexpr std::uint32_t proof = 8;

  enum class Kind {
    next,        ///< the message is to be delivered
    back,        ///< the same, but it takes an earlier jump back
    late,        ///< it was skipped and counted as missing
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
  [[nodiscard]] Kind below(std::uint64_t number);
  [[nodiscard]] Kind skipped(std::uint64_t number);
  std::uint64_t jumpTo(std::uint64_t number, std::uint64_t refused);
  void restart(std::uint64_t number);

  /// Numbers that were skipped at once, up to the one before the end.
  struct Gap {
    std::uint64_t expected = 0;  // the one that would come next if the jump was false
    std::uint64_t end = 0;
    bool heard = false;  // the one before the expected has come
  };

  std::uint64_t _first = 0;
  std::uint64_t _next = 0;
  std::uint64_t _accounted = 0;  // below it all has been delivered or counted, after a jump was taken back
  std::uint64_t _earlyRun = 0;   // the number that would continue the run below _first
  std::uint32_t _earlyCount = 0;
  std::array<Gap, 4> _gaps{};  // the newest
  std::size_t _jumps = 0;
};

}  // namespace kestrel::streams
