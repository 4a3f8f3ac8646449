#pragma once

#include <atomic>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

#include "kestrel/diagnostics/Severity.hpp"
#include "kestrel/export/Export.hpp"

namespace kestrel::diagnostics {

/// Writes records to one named channel of the process-wide log.
///
/// Safe for use from several threads at once, during static initialisation and until the very end of the
/// process. Once constructed, nothing here throws: a record that cannot be formatted or written is dropped. A
/// record whose severity is off costs one load and one test; its parts are not formatted.
class KESTREL_EXPORT Logger {
 public:
  /// Opens the channel; loggers of one name share its severities (see SeveritySettings.hpp).
  explicit Logger(std::string_view channel);

  [[nodiscard]] bool enabled(Severity severity) const noexcept {
    return (_severities->load(std::memory_order_relaxed) & static_cast<SeverityMask>(severity)) != 0;
  }

  /// Writes one record whose text is the parts one after the other, each as operator<< prints it in the
  /// classic locale.
  template <class... Parts>
  void log(Severity severity, const Parts&... parts) const noexcept {
    if (!enabled(severity)) return;
    try {
      write(severity, joined(parts...));
    } catch (...) {  // losing a log line must never become the caller's failure
    }
  }

  /// Writes one record as it stands, whether its severity is on or off.
  void write(Severity severity, std::string_view text) const noexcept;

 private:
  static std::string_view asText(const char* text) noexcept { return text ? text : ""; }
  static std::string_view asText(std::string_view text) noexcept { return text; }
  static std::string_view asText(const std::string& text) noexcept { return text; }

  template <class Part>
  static decltype(auto) shown(const Part& part) {
    if constexpr (std::is_convertible_v<const Part&, std::string_view>) {
      return asText(part);  // a stream gives up at a null pointer
    } else {
      return (part);
    }
  }

  template <class... Parts>
  static std::string joined(const Parts&... parts) {
    if constexpr ((std::is_convertible_v<const Parts&, std::string_view> && ...)) {
      std::string text;
      text.reserve((std::size_t{0} + ... + asText(parts).size()));
      (text.append(asText(parts)), ...);
      return text;
    } else {
      std::ostringstream text;
      text.imbue(std::locale::classic());  // a host's locale must not group the digits of our numbers
      (text << ... << shown(parts));
      return text.str();
    }
  }

  // Both belong to the process-wide channel table, which is never freed.
  const std::string* _channel;
  const std::atomic<SeverityMask>* _severities;
};

}  // namespace kestrel::diagnostics
