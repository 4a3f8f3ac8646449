#pragma once

#include <string_view>

#include "kestrel/diagnostics/Logger.hpp"
#include "kestrel/export/Export.hpp"

namespace kestrel::diagnostics {

/// Records that a function was entered and left: its signature at Severity::functionTrace, once on
/// construction and once on destruction, there followed by " [throw]" when an exception leaves the scope.
///
/// Where the severity is off on entry, neither record is written and nothing is copied or formatted. Lives in
/// the scope of one thread; the logger and the signature's characters must outlive it.
class KESTREL_EXPORT FunctionTrace {
 public:
  FunctionTrace(const Logger& logger, std::string_view signature) noexcept {
    if (logger.enabled(Severity::functionTrace)) enter(logger, signature);
  }
  ~FunctionTrace() {
    if (_logger) leave();
  }
  FunctionTrace(const FunctionTrace&) = delete;
  FunctionTrace& operator=(const FunctionTrace&) = delete;

 private:
  void enter(const Logger& logger, std::string_view signature) noexcept;
  void leave() const noexcept;

  const Logger* _logger = nullptr;  // null: off on entry
  std::string_view _signature;
  int _exceptionsOnEntry = 0;
};

}  // namespace kestrel::diagnostics
