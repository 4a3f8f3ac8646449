#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace kestrel::streams {

/// How far a consumer has come in the messages that the server stores for it, each under a number that grows.
/// A plain object, not thread-safe.
///
/// After every interruption the server sends again, in order, whatever it has no acknowledgement of.
class DurablePosition {
 public:
  struct Arrival {
    bool fresh = false;         ///< it must be delivered
    bool settled = false;       ///< it was dealt with before; the acknowledgement has to be repeated
    std::uint64_t expired = 0;  ///< how many before it were removed unread
  };

  /// Numbers up to this one were sent to an earlier consumer, so that holes among them mean nothing.
  void startAfter(std::uint64_t number) { _quietUpTo = number; }

  /// A message has come; its acknowledgement goes to that subject from now on.
  [[nodiscard]] Arrival arrived(std::uint64_t number, std::string acknowledgeTo);

  /// The message has been dealt with. Returns where to say so.
  [[nodiscard]] std::string settle(std::uint64_t number);

 private:
  std::uint64_t _last = 0;
  std::uint64_t _quietUpTo = 0;
  // Delivered and not settled yet. The server bounds them: past what DurableStore allows a reader to leave
  // unacknowledged, it sends no more.
  std::map<std::uint64_t, std::string> _open;
};

}  // namespace kestrel::streams
