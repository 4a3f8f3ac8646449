#include "Logging.hpp"

#include <exception>

namespace kestrel::threadpool {

const diagnostics::Logger& logger() {
  static const diagnostics::Logger channel("kestrel::threadpool");
  return channel;
}

void logCurrentException(std::string_view whatHappened) noexcept {
  using diagnostics::Severity;
  try {
    throw;
  } catch (const std::exception& error) {
    logger().log(Severity::error, whatHappened, ": ", error.what());
  } catch (...) {
    logger().log(Severity::error, whatHappened, ": an exception of unknown type");
  }
}

}  // namespace kestrel::threadpool
