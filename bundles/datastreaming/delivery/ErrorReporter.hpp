#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>

#include "delivery/OwnedThread.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"

namespace kestrel::streams {

/// The thread on which failures are logged and error callbacks run, so that neither runs inside send() or
/// under a lock. It starts with the first failure. Safe from any thread. Its destructor runs what is queued;
/// a task may call it.
class ErrorReporter {
 public:
  static constexpr std::size_t defaultBound = 65536;

  explicit ErrorReporter(std::size_t bound = defaultBound);
  ~ErrorReporter();
  ErrorReporter(const ErrorReporter&) = delete;
  ErrorReporter& operator=(const ErrorReporter&) = delete;

  /// Queues a task. Past the bound it is dropped and counted, and the log tells how many were.
  void post(std::function<void()> task);

 private:
  struct State {
    explicit State(std::size_t limit) : bound(limit) {}
    const std::size_t bound;
    callbacks::Mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> tasks KESTREL_GUARDED_BY(mutex);
    std::uint64_t dropped KESTREL_GUARDED_BY(mutex) = 0;
    bool stopped KESTREL_GUARDED_BY(mutex) = false;
  };

  static void run(State& state);
  // Gives the lock up while the task runs.
  static void runNext(State& state) KESTREL_REQUIRES(state.mutex);

  const std::shared_ptr<State> _state;  // shared with the thread, which may outlive this object
  OwnedThread _thread;                  // guarded by _state->mutex until destruction
};

}  // namespace kestrel::streams
