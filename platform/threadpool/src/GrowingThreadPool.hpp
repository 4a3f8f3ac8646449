#pragma once

#include <memory>

#include "TimerQueue.hpp"
#include "Workers.hpp"
#include "kestrel/threadpool/ThreadPool.hpp"

namespace kestrel::threadpool {

/// The pool that makeThreadPool() makes.
class GrowingThreadPool final : public ThreadPool {
 public:
  explicit GrowingThreadPool(const ThreadPoolOptions& options);
  ~GrowingThreadPool() override;

  void submit(std::function<void()> work) override;
  void submitAt(std::chrono::steady_clock::time_point when, std::function<void()> work) override;

 private:
  const std::shared_ptr<Workers> _workers;
  TimerQueue _timers;
};

}  // namespace kestrel::threadpool
