#pragma once

namespace kestrel::diagnostics {

/// Severities are bits, so that any set of them can be on for a channel.
enum class Severity : unsigned {
  trace = 4,          ///< one line or more per message
  setup = 8,          ///< progress and set-up
  functionTrace = 32, ///< entry and exit of a function
  warning = 256,      ///< something was lost or refused; the program goes on
  error = 512,        ///< a failure
};

}  // namespace kestrel::diagnostics
