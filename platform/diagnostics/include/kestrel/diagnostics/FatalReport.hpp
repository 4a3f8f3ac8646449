#pragma once

#include <functional>
#include <string_view>

#include "kestrel/export/Export.hpp"

namespace kestrel::diagnostics {

/// Called with the text and the source of a fatal report, on the thread that reports.
using FatalReportHandler = std::function<void(std::string_view text, std::string_view source)>;

/// Installs the function that a fatal report calls before it ends the process (an empty one: none). Safe for
/// several threads at once.
KESTREL_EXPORT void setFatalReportHandler(FatalReportHandler handler);

/// Ends the process because of an internal error after which it cannot go on: writes an error record and a
/// line on standard error, "<source>: <text>", calls the installed handler, then std::abort(). What the
/// handler throws is dropped.
[[noreturn]] KESTREL_EXPORT void fatalReport(std::string_view text, std::string_view source) noexcept;

}  // namespace kestrel::diagnostics
