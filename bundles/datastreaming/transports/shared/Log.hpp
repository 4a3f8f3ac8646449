#pragma once

#include <string>

namespace kestrel::streams {

/// Write one record of the bundle's channel, "kestrel::datastreaming". They never throw.
void logError(const std::string& text) noexcept;
void logSetup(const std::string& text) noexcept;

}  // namespace kestrel::streams
