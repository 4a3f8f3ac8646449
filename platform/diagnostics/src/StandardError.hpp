#pragma once

#include <string_view>

#include "kestrel/diagnostics/RecordObserver.hpp"

namespace kestrel::diagnostics {

/// Writes the line and a newline to standard error in one piece, so that lines of several threads do not mix.
/// Control characters are escaped. A standard error that takes nothing loses the line.
void writeLineToStandardError(std::string_view line);

/// Writes the record as one line with time, severity, channel and text, unless that is turned off. A
/// warning or error that repeats an earlier one is counted instead, see RepeatFilter.
void writeToStandardError(const Record& record);

}  // namespace kestrel::diagnostics
