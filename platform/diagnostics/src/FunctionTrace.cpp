#include "kestrel/diagnostics/FunctionTrace.hpp"

#include <exception>
#include <string>

namespace kestrel::diagnostics {

void FunctionTrace::enter(const Logger& logger, std::string_view signature) noexcept {
  _logger = &logger;
  _signature = signature;
  _exceptionsOnEntry = std::uncaught_exceptions();
  logger.write(Severity::functionTrace, signature);
}

void FunctionTrace::leave() const noexcept {
  if (std::uncaught_exceptions() <= _exceptionsOnEntry) {
    _logger->write(Severity::functionTrace, _signature);
    return;
  }
  try {
    _logger->write(Severity::functionTrace, std::string(_signature) + " [throw]");
  } catch (...) {  // out of memory: this record is lost
  }
}

}  // namespace kestrel::diagnostics
