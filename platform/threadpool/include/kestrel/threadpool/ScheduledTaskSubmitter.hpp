#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stop_token>

#include "kestrel/diagnostics/Export.hpp"
#include "kestrel/threadpool/ThreadPool.hpp"

namespace kestrel::threadpool {

using std::stop_source;
using std::stop_token;

/// Schedules work on a thread pool, once or again and again. Safe for several threads at once.
class KESTREL_EXPORT ScheduledTaskSubmitter {
 public:
  using Work = std::function<void(stop_token)>;

  /// Throws std::invalid_argument for an empty pool. The pool is kept for as long as work may run.
  explicit ScheduledTaskSubmitter(std::shared_ptr<ThreadPool> pool);

  /// As shutdown().
  ~ScheduledTaskSubmitter();
  ScheduledTaskSubmitter(const ScheduledTaskSubmitter&) = delete;
  ScheduledTaskSubmitter& operator=(const ScheduledTaskSubmitter&) = delete;

  /// Repeats the work with fixed delay: each run starts one interval after the one before has ended, the first
  /// one at once or after one interval. It goes on until stop is requested on the returned source or a run
  /// throws, which is logged.
  [[nodiscard]] stop_source postWork(Work work, std::chrono::milliseconds interval, bool startNow);

  /// Runs the work once at that wall-clock time. The work runs even if stop was requested before then (its
  /// token says so), unless shutdown() came first.
  [[nodiscard]] stop_source postWork(Work&& work, std::chrono::system_clock::time_point when);

  /// Drops what has not begun and waits for what runs, except for a run that this very call comes from. Work
  /// posted afterwards is dropped.
  void shutdown();

 private:
  class State;
  std::shared_ptr<State> _state;  // shared with the tasks in the pool, which may outlive the submitter
};

}  // namespace kestrel::threadpool
