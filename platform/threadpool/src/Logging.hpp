#pragma once

#include <string_view>

#include "kestrel/diagnostics/Logger.hpp"

namespace kestrel::threadpool {

/// The channel "kestrel::threadpool".
const diagnostics::Logger& logger();

/// Logs the exception that is being handled, at error level: "<what happened>: <its text>".
void logCurrentException(std::string_view whatHappened) noexcept;

}  // namespace kestrel::threadpool
