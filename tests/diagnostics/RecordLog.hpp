#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kestrel/diagnostics/RecordObserver.hpp"

namespace kestrel::diagnostics {

/// Keeps the severity and text of one channel's records.
class RecordLog {
 public:
  using Entry = std::pair<Severity, std::string>;

  explicit RecordLog(std::string channel) : _channel(std::move(channel)) {}

  std::vector<Entry> entries() const {
    std::lock_guard lock(_mutex);
    return _entries;
  }

 private:
  void add(const Record& record) {
    std::lock_guard lock(_mutex);
    if (record.channel == _channel) _entries.emplace_back(record.severity, record.text);
  }

  const std::string _channel;
  mutable std::mutex _mutex;
  std::vector<Entry> _entries;
  RecordObserver _observer{[this](const Record& record) { add(record); }};
};

}  // namespace kestrel::diagnostics
