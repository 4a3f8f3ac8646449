#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kestrel/diagnostics/Severity.hpp"

namespace kestrel::diagnostics {

class ChannelTable;

/// The severity's name in the log and in settings; the decimal value for one that has none.
std::string severityName(SeverityMask severity);

/// applySeverityText() for a table that is not yet the process's own.
std::vector<std::string> applySeverityTextTo(ChannelTable& table, std::string_view text);

}  // namespace kestrel::diagnostics
