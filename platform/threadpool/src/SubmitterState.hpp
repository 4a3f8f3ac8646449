#pragma once

#include <condition_variable>
#include <optional>
#include <thread>
#include <unordered_set>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "kestrel/threadpool/ScheduledTaskSubmitter.hpp"

namespace kestrel::threadpool {

/// The tasks of one submitter. What lies in the pool refers to a task and to this state, never to the
/// submitter; a task whose submitter was shut down is an empty shell there.
class ScheduledTaskSubmitter::State : public std::enable_shared_from_this<State> {
 public:
  using Clock = std::chrono::steady_clock;

  explicit State(std::shared_ptr<ThreadPool> pool) : _pool(std::move(pool)) {}

  /// Posts work that runs for the first time after `delay`, and again with `interval` if there is one.
  stop_source post(Work work, Clock::duration delay, std::optional<Clock::duration> interval);
  void shutdown();

 private:
  struct Task;
  using TaskPtr = std::shared_ptr<Task>;

  void schedule(ThreadPool& pool, const TaskPtr& task, Clock::duration delay);
  void run(const TaskPtr& task);
  bool begin(Task& task);
  void repeat(const TaskPtr& task);
  void finish(const TaskPtr& task);
  bool onlyThisThreadRuns() const KESTREL_REQUIRES(_mutex);

  callbacks::Mutex _mutex;
  std::condition_variable _runEnded;
  // Empty once shut down, which ends the cycle of pool, task and state.
  std::shared_ptr<ThreadPool> _pool KESTREL_GUARDED_BY(_mutex);
  std::unordered_set<TaskPtr> _tasks KESTREL_GUARDED_BY(_mutex);
};

}  // namespace kestrel::threadpool
