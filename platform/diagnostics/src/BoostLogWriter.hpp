#pragma once

#include <string>
#include <string_view>

#include "kestrel/diagnostics/Severity.hpp"

namespace kestrel::diagnostics {

/// Hands one record to the sinks of the Boost.Log core. Throws what a sink throws.
void writeToBoostLog(const std::string& channel, Severity severity, std::string_view text);

/// Makes the static objects of Boost.Log. Those that are made afterwards are destroyed before them, at the
/// end of the process, and may still log then.
void prepareBoostLog();

}  // namespace kestrel::diagnostics
