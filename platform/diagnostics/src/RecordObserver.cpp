#include "kestrel/diagnostics/RecordObserver.hpp"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "ObserverList.hpp"

namespace kestrel::diagnostics {

class RecordObserver::Entry {
 public:
  explicit Entry(std::function<void(const Record&)> function) : _function(std::move(function)) {}

  void call(const Record& record) noexcept;
  void closeAndWait();

 private:
  /// The entry whose function this thread is in; null outside of any.
  static thread_local const Entry* _current;
  friend void notifyObservers(const Record& record) noexcept;

  const std::function<void(const Record&)> _function;
  std::mutex _mutex;
  std::condition_variable _callEnded;
  // Guarded by _mutex.
  bool _closed = false;
  int _calls = 0;
};

thread_local const RecordObserver::Entry* RecordObserver::Entry::_current = nullptr;

void RecordObserver::Entry::call(const Record& record) noexcept {
  {
    std::lock_guard lock(_mutex);
    if (_closed) return;
    ++_calls;
  }
  _current = this;
  try {
    _function(record);
  } catch (...) {  // an observer's failure is not the logging code's
  }
  _current = nullptr;
  std::lock_guard lock(_mutex);
  --_calls;
  _callEnded.notify_all();
}

void RecordObserver::Entry::closeAndWait() {
  const int callsOfThisThread = _current == this ? 1 : 0;
  std::unique_lock lock(_mutex);
  _closed = true;
  _callEnded.wait(lock, [&] { return _calls == callsOfThisThread; });
}

namespace {

using Entries = std::vector<std::shared_ptr<RecordObserver::Entry>>;

struct ObserverList {
  std::atomic<bool> any{false};  // spares the mutex where nobody observes
  std::mutex mutex;
  Entries entries;  // guarded by mutex
};

/// Leaked on purpose, as everything that logging at exit needs.
ObserverList& observerList() {
  static auto* const list = new ObserverList;
  return *list;
}

}  // namespace

void notifyObservers(const Record& record) noexcept {
  auto& list = observerList();
  if (!list.any || RecordObserver::Entry::_current) return;
  Entries entries;
  try {
    std::lock_guard lock(list.mutex);
    entries = list.entries;
  } catch (...) {  // out of memory: this record goes unobserved
    return;
  }
  for (const auto& entry : entries) entry->call(record);
}

RecordObserver::RecordObserver(std::function<void(const Record&)> function)
    : _entry(std::make_shared<Entry>(std::move(function))) {
  auto& list = observerList();
  std::lock_guard lock(list.mutex);
  list.entries.push_back(_entry);
  list.any = true;
}

RecordObserver::~RecordObserver() {
  {
    auto& list = observerList();
    std::lock_guard lock(list.mutex);
    std::erase(list.entries, _entry);
    list.any = !list.entries.empty();
  }
  _entry->closeAndWait();
}

}  // namespace kestrel::diagnostics
