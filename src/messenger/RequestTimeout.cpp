#include "remote_connectivity/asyncio/util/RequestTimeout.hpp"

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "kestrel/diagnostics/Logger.hpp"

namespace remote_connectivity::asyncio::util {

using kestrel::diagnostics::Severity;

namespace {
const kestrel::diagnostics::Logger logger("asyncio::util");
constexpr char variable[] = "QX_ASYNCIO_MESSENGER_REQUEST_TIMEOUT";
constexpr std::chrono::seconds defaultTimeout{20};
}  // namespace

std::chrono::seconds getRequestTimeout() {
  const char* value = secure_getenv(variable);
  if (value == nullptr) return defaultTimeout;
  try {
    const int before = errno;
    const auto seconds = std::stoul(value);
    errno = before;
    return std::chrono::seconds(seconds);
  } catch (const std::invalid_argument& error) {
    logger.log(
        Severity::error,
        "Invalid value for QX_ASYNCIO_MESSENGER_REQUEST_TIMEOUT_S environment variable: ", error.what());
  } catch (const std::out_of_range& error) {
    logger.log(Severity::error, "Out of range value provided for ", variable,
               " environment variable: ", error.what());
  }
  return defaultTimeout;
}

}  // namespace remote_connectivity::asyncio::util
