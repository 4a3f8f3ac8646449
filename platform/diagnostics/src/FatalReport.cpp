#include "kestrel/diagnostics/FatalReport.hpp"

#include <cstdlib>
#include <mutex>
#include <string>
#include <utility>

#include "StandardError.hpp"
#include "kestrel/diagnostics/Logger.hpp"

namespace kestrel::diagnostics {

namespace {

struct Installed {
  std::mutex mutex;
  FatalReportHandler handler;  // guarded by mutex
};

Installed& installed() {
  static auto* const state = new Installed;  // never freed: reports come until the end of the process
  return *state;
}

void report(std::string_view text, std::string_view source) {
  const auto line = std::string(source) + ": " + std::string(text);
  Logger("kestrel::diagnostics").write(Severity::error, line);
  writeLineToStandardError("Fatal error. " + line);
  FatalReportHandler handler;
  {
    std::lock_guard lock(installed().mutex);
    handler = installed().handler;
  }
  if (handler) handler(text, source);
}

}  // namespace

void setFatalReportHandler(FatalReportHandler handler) {
  std::lock_guard lock(installed().mutex);
  installed().handler.swap(handler);
}

void fatalReport(std::string_view text, std::string_view source) noexcept {
  static thread_local bool reporting = false;  // a handler that fails in turn must not report without end
  if (!std::exchange(reporting, true)) {
    try {
      report(text, source);
    } catch (...) {  // the process ends all the same
    }
  }
  std::abort();
}

}  // namespace kestrel::diagnostics
