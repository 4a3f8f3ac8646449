#pragma once

#include <mutex>
#include <tuple>

#include "TestTools.hpp"
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
  /// The texts of one channel and severity, in order.
  Lines texts(std::string_view wantedChannel, Severity wantedSeverity) const {
    const std::lock_guard lock(_mutex);
    Lines result;
    for (const auto& [channel, severity, line] : _records) {
      if (channel == wantedChannel && severity == wantedSeverity) result.push_back(line);
    }
    return result;
  }
  /// How many records hold that part.
  int count(std::string_view part) const {
    const std::lock_guard lock(_mutex);
    int result = 0;
    for (const auto& record : _records) result += std::get<2>(record).find(part) != std::string::npos;
    return result;
  }
  void clear() {
    const std::lock_guard lock(_mutex);
    _records.clear();
  }

 private:
  mutable std::mutex _mutex;  // guards _records
  std::vector<std::tuple<std::string, Severity, std::string>> _records;
  kestrel::diagnostics::RecordObserver _observer{[this](const kestrel::diagnostics::Record& record) {
    const std::lock_guard lock(_mutex);
    _records.emplace_back(record.channel, record.severity, record.text);
  }};
};

}  // namespace library_test
