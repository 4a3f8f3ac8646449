#include "StandardError.hpp"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

#include "RepeatFilter.hpp"
#include "SeverityNames.hpp"
#include "kestrel/diagnostics/SeveritySettings.hpp"

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

/// In ISO form; not with a stream, which would group digits as the host's locale has it.
static std::string timeText() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm parts{};
  gmtime_r(&now.tv_sec, &parts);
  char text[96];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06ldZ", parts.tm_year + 1900,
                parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                now.tv_nsec / 1000);
  return text;
}

static void writeRecord(std::string_view channel, Severity severity, std::string_view text) {
  auto line = timeText() + ' ' + severityName(static_cast<SeverityMask>(severity)) + ' ';
  line.append(channel).append(" ").append(text);
  writeLineToStandardError(line);
}

void setStandardErrorOutput(bool on) noexcept {
  isOn = on;
}

static void writeRepeated(const std::vector<RepeatFilter::Repeated>& all) {
  for (const auto& each : all) {
    writeRecord(each.channel, each.severity,
                each.text + " (repeated " + std::to_string(each.times) + " times)");
  }
}

namespace {

/// What holds back records that repeat others. Never destroyed, as threads log while the process ends.
struct Throttle {
  static Throttle& shared() {
    static auto* const throttle = new Throttle;
    return *throttle;
  }
  std::mutex mutex;
  RepeatFilter filter;  // guarded by mutex
};

/// Writes at the end of the process what is still held back.
struct WritesTheRest {
  ~WritesTheRest() {
    try {
      const std::lock_guard lock(Throttle::shared().mutex);
      writeRepeated(Throttle::shared().filter.takeAll());
    } catch (...) {  // out of memory: the counts are lost
    }
  }
};

}  // namespace

void writeToStandardError(const Record& record) {
  if (!isOn) return;
  // Lines of the other severities were asked for, each of them.
  if (record.severity < Severity::warning) return writeRecord(record.channel, record.severity, record.text);
  std::vector<RepeatFilter::Repeated> ended;
  bool isNew = false;
  {
    auto& throttle = Throttle::shared();
    const std::lock_guard lock(throttle.mutex);
    isNew = throttle.filter.admits(record, RepeatFilter::Clock::now(), ended);
  }
  writeRepeated(ended);
  if (isNew) return writeRecord(record.channel, record.severity, record.text);
  static const WritesTheRest atTheEnd;
}

}  // namespace kestrel::diagnostics
