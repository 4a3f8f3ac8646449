#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>

#include "sequencing/Frame.hpp"
#include "transports/nats/wire/MessageHeaders.hpp"

namespace kestrel::streams {

/// Decides when a live producer says how far it has come: more and more seldom while it is idle, and when it
/// goes, until the server is known to have that word. A plain object, not thread-safe.
class Announcement {
 public:
  /// What to say now, if anything, of one that sent that message last, 0 if none yet.
  [[nodiscard]] std::optional<ProducerEvent::Kind> due(std::uint64_t last, TimePoint now) {
    if (_retired) {
      if (last == 0) _settled = true;  // nobody has heard of it
      return _settled || _asked ? std::nullopt : std::optional(ProducerEvent::Kind::gone);
    }
    if (std::exchange(_seen, last) != last) {  // its messages speak for themselves
      _interval = firstInterval;
      _due = now + _interval;
    }
    return last > 0 && now >= _due ? std::optional(ProducerEvent::Kind::idle) : std::nullopt;
  }
  /// That was said; the last word with a question whether it has arrived.
  void said(ProducerEvent::Kind kind, TimePoint now) {
    if (kind == ProducerEvent::Kind::gone) {
      _asked = true;
    } else {
      _interval = std::min(2 * _interval, longestInterval);
      _due = now + _interval;
    }
  }

  /// It will send nothing more.
  void retire() { _retired = true; }
  /// The server has answered to the newest question.
  void confirm() { _settled = _settled || _asked; }
  /// What was said last may not have arrived.
  void restart() {
    _asked = false;
    _interval = firstInterval;
    _due = {};
  }
  /// Nobody can be told any more.
  void abandon() { _settled = true; }

  [[nodiscard]] bool retired() const { return _retired; }
  /// Whether nothing will be due any more.
  [[nodiscard]] bool settled() const { return _settled; }

 private:
  static constexpr std::chrono::seconds firstInterval{1};
  static constexpr std::chrono::seconds longestInterval{30};

  std::uint64_t _seen = 0;  // the last message when it was asked before
  TimePoint _due{};         // when to say again that it is idle
  std::chrono::seconds _interval = firstInterval;
  bool _retired = false;
  bool _asked = false;  // and the answer may come
  bool _settled = false;
};

}  // namespace kestrel::streams
