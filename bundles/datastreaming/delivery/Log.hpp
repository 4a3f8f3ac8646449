#pragma once

#include <string>

namespace kestrel::streams {

/// Write one record of the bundle's channel, "kestrel::datastreaming". They never throw.
void logError(const std::string& text) noexcept;
/// Makes the log, so that objects made afterwards may still use it while they are destroyed with the process.
void prepareLog() noexcept;

void logSetup(const std::string& text) noexcept;

}  // namespace kestrel::streams
