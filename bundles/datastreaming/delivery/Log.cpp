#include "delivery/Log.hpp"

#include <kestrel/diagnostics/Logger.hpp>

namespace kestrel::streams {

namespace {

const diagnostics::Logger& channel() {
  // Never destroyed: threads of the bundle may still log while the process exits.
  static const auto* const logger = new diagnostics::Logger("kestrel::datastreaming");
  return *logger;
}

}  // namespace

void prepareLog() noexcept {
  (void)channel();
}

void logError(const std::string& text) noexcept {
  channel().log(diagnostics::Severity::error, text);
}

void logSetup(const std::string& text) noexcept {
  channel().log(diagnostics::Severity::setup, text);
}

}  // namespace kestrel::streams
