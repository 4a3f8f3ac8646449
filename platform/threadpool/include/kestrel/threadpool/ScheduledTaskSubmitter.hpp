#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stop_token>

#include "kestrel/export/Export.hpp"
#include "kestrel/threadpool/ThreadPool.hpp"

namespace kestrel::threadpool {

using std::stop_source;
using std::stop_token;

/// Schedules work on a thread pool, once or again and again. Safe for several threads at once.
///
/// Work runs on the pool's threads with no lock held, and may post more work or shut the submitter down. What
/// escapes a run is logged and dropped.
class KESTREL_EXPORT ScheduledTaskSubmitter {
 public:
  using Work = std::function<void(stop_token)>;

  /// Throws std::invalid_argument for an empty pool. The pool is kept until shutdown().
  explicit ScheduledTaskSubmitter(std::shared_ptr<ThreadPool> pool);

  /// As shutdown().
  ~ScheduledTaskSubmitter();
  ScheduledTaskSubmitter(const ScheduledTaskSubmitter&) = delete;
  ScheduledTaskSubmitter& operator=(const ScheduledTaskSubmitter&) = delete;

  /// Repeats the work with fixed delay: each run starts one interval after the one before has ended, the
  /// first one at once or after one interval. It goes on until stop is requested on the returned source or a
  /// run throws. Throws std::invalid_argument for empty work or a negative interval.
  [[nodiscard]] stop_source postWork(Work work, std::chrono::milliseconds interval, bool startNow);

  /// Runs the work once at that wall-clock time, as far away as it is now: later steps of the wall clock do
  /// not move it. The work runs even if stop was requested before then (its token says so), unless shutdown()
  /// came first. Throws std::invalid_argument for empty work.
  [[nodiscard]] stop_source postWork(Work&& work, std::chrono::system_clock::time_point when);

  /// Drops what has not begun and waits for what runs, except for a run that this very call comes from. Stop
  /// is requested on all of it. When this returns, the dropped and the ended function objects are gone. Work
  /// posted afterwards is dropped.
  void shutdown();

 private:
  class KESTREL_LOCAL State;
  std::shared_ptr<State> _state;  // shared with the tasks in the pool, which may outlive the submitter
};

}  // namespace kestrel::threadpool
