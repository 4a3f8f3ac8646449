#pragma once

#include <cstdint>

#include "sequencing/Frame.hpp"
#include "transports/nats/connection/Backoff.hpp"

namespace kestrel::streams {

/// Decides when the reader of a durable stream is attached anew: at once over a new session, or when the
/// server has fallen silent; more and more slowly if attempts fail or readers do not last. A plain object;
/// for one thread.
class ReaderLife {
 public:
  enum class Step { receive, attach, wait };

  /// What to do now, over the session of that number, 0 while there is none.
  [[nodiscard]] Step next(std::uint64_t session, TimePoint now) {
    const bool silent = session != 0 && now - _heard > heartbeatsMissed;
    if (_attached && (silent || session != _session)) detached(now);
    if (_attached) return Step::receive;
    return session != 0 && now >= _nextAttempt ? Step::attach : Step::wait;
  }

  void attached(std::uint64_t session, TimePoint now) {
    _session = session;
    _attached = true;
    _complained = false;
    _since = _heard = now;
  }
  /// An attempt has failed. Returns whether it is the first one since a reader was attached.
  [[nodiscard]] bool failed(TimePoint now) {
    _nextAttempt = now + backoff(pause, ++_setbacks);
    return !std::exchange(_complained, true);
  }
  /// Anything has come, and has been dealt with.
  void heard(TimePoint now) { _heard = now; }
  /// It is of no use any more. One that does not last may have met something that the next one meets again.
  void detached(TimePoint now) {
    _attached = false;
    _setbacks = now - _since < longLife ? _setbacks + 1 : 0;
    if (_setbacks > 1) _nextAttempt = now + backoff(pause, _setbacks - 1);
  }

 private:
  static constexpr std::chrono::milliseconds pause{100};  // before the second attempt to attach; it grows
  static constexpr std::chrono::seconds longLife{
      5};  // of a reader; after shorter ones the pauses go on growing
  static constexpr std::chrono::seconds heartbeatsMissed{4};  // the server sends one a second

  bool _attached = false;
  bool _complained = false;
  std::uint64_t _session = 0;  // over which it was attached
  TimePoint _since{};          // when it was attached last
  TimePoint _heard{};          // when anything came last
  TimePoint _nextAttempt{};
  int _setbacks = 0;  // in a row: attempts that failed, and readers that did not last
};

}  // namespace kestrel::streams
