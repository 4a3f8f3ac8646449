#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Waiting.hpp"
#include "kestrel/diagnostics/RecordObserver.hpp"
#include "kestrel/diagnostics/SeveritySettings.hpp"

namespace library_test {

using kestrel::diagnostics::Severity;

/// Turns every severity on and keeps what is logged while it lives. Safe for several threads.
class LogCapture {
 public:
  LogCapture() {
    kestrel::diagnostics::setStandardErrorOutput(false);
    kestrel::diagnostics::setSeverities("*", kestrel::diagnostics::allSeverities);
  }
  ~LogCapture() {
    kestrel::diagnostics::setSeverities("*", kestrel::diagnostics::defaultSeverities);
    kestrel::diagnostics::setStandardErrorOutput(true);
  }

  /// Whether exactly that record was written.
  testing::AssertionResult wrote(std::string_view channel, Severity severity, std::string_view text) const {
    return find("\"" + std::string(text) + "\" on " + std::string(channel), [&](const Line& line) {
      return line.channel == channel && line.severity == severity && line.text == text;
    });
  }

  /// Whether an error record was written whose text holds that part.
  testing::AssertionResult wroteError(std::string_view part) const {
    return find("an error that says \"" + std::string(part) + "\"", [&](const Line& line) {
      return line.severity == Severity::error && line.text.find(part) != std::string::npos;
    });
  }

  testing::AssertionResult soonWrites(std::string_view part) const {
    return eventually("a record that says " + std::string(part), [&] { return count(part) > 0; });
  }

  std::size_t count(std::string_view part) const {
    const std::lock_guard lock(_mutex);
    return static_cast<std::size_t>(std::count_if(_lines.begin(), _lines.end(), [&](const Line& line) {
      return line.text.find(part) != std::string::npos;
    }));
  }

  /// The texts of one channel and severity, in order.
  std::vector<std::string> texts(std::string_view channel, Severity severity) const {
    const std::lock_guard lock(_mutex);
    std::vector<std::string> result;
    for (const Line& line : _lines) {
      if (line.channel == channel && line.severity == severity) result.push_back(line.text);
    }
    return result;
  }

  void clear() {
    const std::lock_guard lock(_mutex);
    _lines.clear();
  }

 private:
  struct Line {
    std::string channel;
    Severity severity;
    std::string text;
  };

  template <class Matches>
  testing::AssertionResult find(const std::string& wanted, Matches matches) const {
    const std::lock_guard lock(_mutex);
    if (std::any_of(_lines.begin(), _lines.end(), matches)) return testing::AssertionSuccess();
    auto failure = testing::AssertionFailure() << "not logged: " << wanted << "; the log holds";
    for (const Line& line : _lines) {
      failure << "\n  " << line.channel << " " << static_cast<unsigned>(line.severity) << " " << line.text;
    }
    return failure;
  }

  mutable std::mutex _mutex;  // guards _lines
  std::vector<Line> _lines;
  kestrel::diagnostics::RecordObserver _observer{[this](const kestrel::diagnostics::Record& record) {
    const std::lock_guard lock(_mutex);
    _lines.push_back({std::string(record.channel), record.severity, std::string(record.text)});
  }};
};

}  // namespace library_test
