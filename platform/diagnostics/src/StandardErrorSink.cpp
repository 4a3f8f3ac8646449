#include "StandardErrorSink.hpp"

#include <unistd.h>

#include <atomic>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/attributes/value_visitation.hpp>
#include <cerrno>
#include <cstdio>
#include <string>

#include "SeverityNames.hpp"

namespace kestrel::diagnostics {

namespace {

std::atomic<bool> isOn{true};

bool isControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7f;
}

void appendEscaped(std::string& line, char c) {
  constexpr char digits[] = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(c);
  if (c == '\n') {
    line += "\\n";
  } else if (c == '\r') {
    line += "\\r";
  } else if (c == '\t') {
    line += "\\t";
  } else {
    line += {'\\', 'x', digits[byte >> 4], digits[byte & 0xf]};
  }
}

}  // namespace

void writeLineToStandardError(std::string_view text) {
  std::string line;
  line.reserve(text.size() + 1);
  for (const char c : text) {
    if (isControl(c)) {
      appendEscaped(line, c);
    } else {
      line += c;
    }
  }
  line += '\n';
  for (std::string_view rest = line; !rest.empty();) {
    const auto written = ::write(STDERR_FILENO, rest.data(), rest.size());
    if (written > 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || errno != EINTR) {
      return;
    }
  }
}

void StandardErrorSink::setOn(bool on) noexcept {
  isOn = on;
}

/// In ISO form; not with a stream, which would group digits as the host's locale has it.
static std::string timeText(const boost::posix_time::ptime& time) {
  const auto date = time.date();
  const auto day = time.time_of_day();
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", static_cast<int>(date.year()),
                static_cast<int>(date.month()), static_cast<int>(date.day()), static_cast<int>(day.hours()),
                static_cast<int>(day.minutes()), static_cast<int>(day.seconds()),
                static_cast<int>(day.total_microseconds() % 1000000));
  return text;
}

void StandardErrorSink::consume(const boost::log::record_view& record) {
  if (!isOn) return;
  const auto channel = boost::log::extract<std::string>("Channel", record);
  const auto severity = boost::log::extract<SeverityMask>("Severity", record);
  const auto text = boost::log::extract<std::string>("Message", record);
  const auto time = boost::log::extract<boost::posix_time::ptime>("TimeStamp", record);
  if (!channel || !severity || !text || !time) return;
  writeLineToStandardError(timeText(*time) + ' ' + severityName(*severity) + ' ' + *channel + ' ' + *text);
}

}  // namespace kestrel::diagnostics
