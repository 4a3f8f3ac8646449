#pragma once

#include <cppmicroservices/ServiceInterface.h>

#include <chrono>
#include <functional>

namespace kestrel::threadpool {

/// Runs work on threads of its own. Work may block for as long as it likes: the pool grows when work waits
/// and no thread is idle, and shrinks again. Safe for several threads at once.
class ThreadPool {
 public:
  virtual ~ThreadPool() = default;

  /// Runs the work as soon as a thread is free. An exception that escapes it is logged and dropped. Work that
  /// has not begun when the pool is destroyed is dropped.
  virtual void submit(std::function<void()> work) = 0;

  /// Runs the work at that time or soon after, as submit() does. It cannot be taken back: work that may be
  /// cancelled checks for itself whether it is still wanted.
  virtual void submitAt(std::chrono::steady_clock::time_point when, std::function<void()> work) = 0;
};

}  // namespace kestrel::threadpool

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(kestrel::threadpool::ThreadPool, "ThreadPool")
