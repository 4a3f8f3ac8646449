#pragma once

#include <boost/log/core/record_view.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/frontend_requirements.hpp>
#include <string_view>

namespace kestrel::diagnostics {

/// Writes the line and a newline to standard error in one piece, so that lines of several threads do not mix.
/// Control characters are escaped. A standard error that takes nothing loses the line.
void writeLineToStandardError(std::string_view line);

/// The sink that every process has: one line a record with time, severity, channel and text. Records that are
/// not the logger's own (the host may use the same core) are passed over.
class StandardErrorSink
    : public boost::log::sinks::basic_sink_backend<boost::log::sinks::concurrent_feeding> {
 public:
  static void setOn(bool on) noexcept;
  void consume(const boost::log::record_view& record);
};

}  // namespace kestrel::diagnostics
