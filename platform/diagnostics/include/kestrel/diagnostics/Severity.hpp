#pragma once

namespace kestrel::diagnostics {

/// Severities are bits, so that any set of them can be on for a channel.
enum class Severity : unsigned {
  trace = 4,           ///< one line or more per message
  setup = 8,           ///< progress and set-up
  functionTrace = 32,  ///< entry and exit of a function
  warning = 256,       ///< something was lost or refused; the program goes on
  error = 512,         ///< a failure
};

/// A set of severities: their bits joined.
using SeverityMask = unsigned;

[[nodiscard]] constexpr SeverityMask operator|(Severity a, Severity b) noexcept {
  return static_cast<SeverityMask>(a) | static_cast<SeverityMask>(b);
}

[[nodiscard]] constexpr SeverityMask operator|(SeverityMask set, Severity severity) noexcept {
  return set | static_cast<SeverityMask>(severity);
}

inline constexpr SeverityMask noSeverities = 0;
inline constexpr SeverityMask defaultSeverities = Severity::warning | Severity::error;
inline constexpr SeverityMask allSeverities =
    defaultSeverities | Severity::trace | Severity::setup | Severity::functionTrace;

}  // namespace kestrel::diagnostics
