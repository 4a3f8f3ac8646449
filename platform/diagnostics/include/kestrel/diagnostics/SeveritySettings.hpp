#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kestrel/diagnostics/Severity.hpp"
#include "kestrel/export/Export.hpp"

/// Which severities are on for which channel. All functions are safe for several threads at once, and take
/// effect at once for loggers that exist.
///
/// At the first use of the log the environment variable KESTREL_LOG is read, in the form that
/// applySeverityText() takes; entries that it cannot read are named on standard error and ignored.
namespace kestrel::diagnostics {

/// Turns exactly these severities on for a channel. The channel "*" stands for every channel that has no
/// setting of its own, whether it exists already or not.
KESTREL_EXPORT void setSeverities(std::string_view channelOrStar, SeverityMask mask);

/// The severities that are on for the channel, existing or not; for "*" those of channels without a setting.
[[nodiscard]] KESTREL_EXPORT SeverityMask severities(std::string_view channelOrStar);

/// Applies settings written as text and returns the entries that were ignored because they are malformed.
///
///     text     = entry *( ";" entry )            an empty entry is skipped
///     entry    = channel "=" severity *( "," severity )
///     severity = "trace" / "setup" / "function" / "warning" / "error" / "all" / "none"
///
/// Blanks around names are dropped; the last of several entries for one channel holds. For example
/// "*=error,warning;asyncio::util=trace,setup;asyncio::util::SendDataHelper=all".
[[nodiscard]] KESTREL_EXPORT std::vector<std::string> applySeverityText(std::string_view text);

/// Turns the lines on standard error on (as they are at first) or off.
///
/// A warning or error there that repeats one of its channel within ten seconds, numbers after a blank or a
/// bracket aside, is not written but counted: "<the last of them> (repeated <n> times)" follows with the next
/// warning or error after that time, or at the end of the process. Observers and the Boost.Log core get every
/// record.
KESTREL_EXPORT void setStandardErrorOutput(bool on) noexcept;

/// Hands every record to the Boost.Log core as well (on), or no longer (off, as it is at first: the core is
/// the host's, and until it asks for the records nothing here touches the core, its sinks or its filters).
/// Records carry the attributes "Channel" (std::string), "Severity" (unsigned), "TimeStamp" (UTC), "ThreadID"
/// and "Message". Ends by itself at the end of the process, before the static objects of Boost.Log go. For a
/// host that does not log with Boost.Log see RecordObserver.
KESTREL_EXPORT void setBoostLogOutput(bool on);

}  // namespace kestrel::diagnostics
