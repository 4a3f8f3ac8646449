#pragma once

#include <exception>

#include "kestrel/diagnostics/Logger.hpp"

namespace remote_connectivity::asyncio::util {

using kestrel::diagnostics::Severity;

/// The messenger's log channel, "asyncio::util".
inline const kestrel::diagnostics::Logger& messengerLog() {
  static const kestrel::diagnostics::Logger logger("asyncio::util");
  return logger;
}

/// What an exception says, for the log; valid for as long as the exception is, which must not be null.
inline const char* textOf(const std::exception_ptr& error) noexcept {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (...) {
    return "an exception of an unknown type";
  }
}

}  // namespace remote_connectivity::asyncio::util
