#include "SubmitterState.hpp"

#include <algorithm>
#include <utility>
#include <vector>

#include "Logging.hpp"

namespace kestrel::threadpool {

struct ScheduledTaskSubmitter::State::Task {
  bool runs() const { return runner != std::thread::id(); }

  const std::optional<Clock::duration> interval;  // empty: runs once
  stop_source stop;
  Work work;               // the running thread's while the task runs, else guarded by the state's mutex
  std::thread::id runner;  // guarded by the state's mutex
};

stop_source ScheduledTaskSubmitter::State::post(Work work, Clock::duration delay,
                                                std::optional<Clock::duration> interval) {
  const auto task = std::make_shared<Task>(Task{interval, {}, std::move(work), {}});
  std::shared_ptr<ThreadPool> pool;
  {
    const callbacks::MutexLock lock(_mutex);
    pool = _pool;
    if (pool) _tasks.insert(task);
  }
  if (!pool) return task->stop;
  try {
    schedule(*pool, task, delay);
  } catch (...) {
    finish(task);
    throw;
  }
  return task->stop;
}

void ScheduledTaskSubmitter::State::schedule(ThreadPool& pool, const TaskPtr& task, Clock::duration delay) {
  auto due = [self = shared_from_this(), task] { self->run(task); };
  if (delay <= Clock::duration::zero()) {
    pool.submit(std::move(due));
  } else {
    pool.submitAt(Clock::now() + delay, std::move(due));
  }
}

void ScheduledTaskSubmitter::State::run(const TaskPtr& task) {
  if (!begin(*task)) return;
  bool again = false;
  try {
    if (!task->interval || !task->stop.stop_requested()) task->work(task->stop.get_token());
    again = task->interval && !task->stop.stop_requested();
  } catch (...) {
    logCurrentException(task->interval ? "Periodic work failed and ends" : "Scheduled work failed");
  }
  if (again) {
    repeat(task);
  } else {
    finish(task);
  }
}

bool ScheduledTaskSubmitter::State::begin(Task& task) {
  const callbacks::MutexLock lock(_mutex);
  if (!_pool) return false;
  task.runner = std::this_thread::get_id();
  return true;
}

void ScheduledTaskSubmitter::State::repeat(const TaskPtr& task) {
  std::shared_ptr<ThreadPool> pool;
  {
    const callbacks::MutexLock lock(_mutex);
    pool = _pool;
    if (pool) task->runner = {};
  }
  if (!pool) return finish(task);
  try {
    schedule(*pool, task, *task->interval);
  } catch (...) {
    logCurrentException("Periodic work cannot be repeated and ends");
    finish(task);
  }
}

void ScheduledTaskSubmitter::State::finish(const TaskPtr& task) {
  Work released;
  {
    const callbacks::MutexLock lock(_mutex);
    released.swap(task->work);
  }
  released = nullptr;  // before shutdown() may return: what the work captured may need its owner
  const callbacks::MutexLock lock(_mutex);
  task->runner = {};
  _tasks.erase(task);
  _runEnded.notify_all();
}

bool ScheduledTaskSubmitter::State::onlyThisThreadRuns() const {
  return std::ranges::all_of(_tasks, [](const TaskPtr& task) {
    return !task->runs() || task->runner == std::this_thread::get_id();
  });
}

void ScheduledTaskSubmitter::State::shutdown() {
  std::shared_ptr<ThreadPool> pool;  // released last and without a lock: it may be the pool's end
  std::vector<stop_source> stops;
  std::vector<Work> dropped;
  {
    const callbacks::MutexLock lock(_mutex);
    pool.swap(_pool);
    for (const auto& task : _tasks) {
      stops.push_back(task->stop);
      if (!task->runs()) dropped.push_back(std::exchange(task->work, nullptr));
    }
    std::erase_if(_tasks, [](const TaskPtr& task) { return !task->runs(); });
  }
  for (auto& stop : stops) stop.request_stop();
  dropped.clear();
  callbacks::UniqueLock lock(_mutex);
  _runEnded.wait(lock.native(), [this]() KESTREL_REQUIRES(_mutex) { return onlyThisThreadRuns(); });
}

}  // namespace kestrel::threadpool
