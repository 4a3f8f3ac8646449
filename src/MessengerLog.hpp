#pragma once

#include "kestrel/diagnostics/Logger.hpp"

namespace remote_connectivity::asyncio::util {

using kestrel::diagnostics::Severity;

/// The messenger's log channel, "asyncio::util".
inline const kestrel::diagnostics::Logger& messengerLog() {
  static const kestrel::diagnostics::Logger logger("asyncio::util");
  return logger;
}

}  // namespace remote_connectivity::asyncio::util
