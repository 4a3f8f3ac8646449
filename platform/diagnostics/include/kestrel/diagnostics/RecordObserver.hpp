#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "kestrel/diagnostics/Severity.hpp"
#include "kestrel/export/Export.hpp"

namespace kestrel::diagnostics {

/// One record as an observer sees it. The views hold only during the call.
struct Record {
  std::string_view channel;
  Severity severity;
  std::string_view text;
};

/// Calls a function for every record that is written, for as long as it lives; for hosts and tests.
///
/// The function runs on the thread that logs, and on several at once if several log. It may log; such records
/// are written but not observed. What it throws is dropped. The destructor waits for calls on other threads,
/// so it must not be called under a lock that the function takes; after it no call runs.
class KESTREL_EXPORT RecordObserver {
 public:
  explicit RecordObserver(std::function<void(const Record&)> function);
  ~RecordObserver();
  RecordObserver(const RecordObserver&) = delete;
  RecordObserver& operator=(const RecordObserver&) = delete;

  class KESTREL_LOCAL Entry;

 private:
  std::shared_ptr<Entry> _entry;  // shared with the calls that are under way
};

}  // namespace kestrel::diagnostics
