#pragma once

#include <atomic>
#include <sstream>
#include <string>
#include <string_view>

#include "kestrel/diagnostics/Export.hpp"
#include "kestrel/diagnostics/Severity.hpp"

namespace kestrel::diagnostics {

/// Writes records to one named channel of the process-wide log.
///
/// Safe for use from several threads at once. Nothing here throws: a record that cannot be formatted or
/// written is dropped. A record whose severity is off costs one load and one test; its parts are not
/// formatted.
class KESTREL_EXPORT Logger {
 public:
  /// Opens the channel; loggers of one name share its severities. Lives as long as the process may log.
  explicit Logger(std::string_view channel);

  [[nodiscard]] bool enabled(Severity severity) const noexcept {
    return (_severities->load(std::memory_order_relaxed) & static_cast<unsigned>(severity)) != 0;
  }

  /// Writes one record whose text is the parts one after the other, each as operator<< prints it.
  template <class... Parts>
  void log(Severity severity, const Parts&... parts) const noexcept {
    if (!enabled(severity)) return;
    try {
      std::ostringstream text;
      (text << ... << parts);
      write(severity, text.str());
    } catch (...) {  // losing a log line must never become the caller's failure
    }
  }

  /// Writes one record as it stands, whether its severity is on or off.
  void write(Severity severity, std::string_view text) const noexcept;

 private:
  std::string _channel;
  const std::atomic<unsigned>* _severities;  // owned by the process-wide channel table, never freed
};

}  // namespace kestrel::diagnostics
