#include "GrowingThreadPool.hpp"

#include <utility>

namespace kestrel::threadpool {

GrowingThreadPool::GrowingThreadPool(const ThreadPoolOptions& options)
    : _workers(std::make_shared<Workers>(options)),
      _timers([workers = _workers](Workers::Work work) { workers->submit(std::move(work)); }) {}

GrowingThreadPool::~GrowingThreadPool() {
  _timers.close();
  _workers->close();
}

void GrowingThreadPool::submit(std::function<void()> work) {
  _workers->submit(std::move(work));
}

void GrowingThreadPool::submitAt(std::chrono::steady_clock::time_point when, std::function<void()> work) {
  if (when <= std::chrono::steady_clock::now()) {
    _workers->submit(std::move(work));
  } else {
    _timers.add(when, std::move(work));
  }
}

std::shared_ptr<ThreadPool> makeThreadPool(const ThreadPoolOptions& options) {
  return std::make_shared<GrowingThreadPool>(options);
}

}  // namespace kestrel::threadpool
