#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

namespace kestrel::streams {

/// A thread whose owner may be destroyed on it. Not thread-safe.
class OwnedThread {
 public:
  OwnedThread() = default;
  ~OwnedThread() { end(); }
  OwnedThread(const OwnedThread&) = delete;
  OwnedThread& operator=(const OwnedThread&) = delete;

  /// Runs the work, once, under that name of at most 15 characters. Throws std::system_error.
  void start(const char* name, std::function<void()> work);
  [[nodiscard]] bool started() const { return _thread.joinable(); }
  [[nodiscard]] bool isCurrent() const { return _thread.get_id() == std::this_thread::get_id(); }

  /// Waits until the work is done and what it held is gone. On the thread itself it cannot wait: then the end
  /// of the process, or the unloading of this code, waits for it, ten seconds at most.
  void end();

 private:
  std::thread _thread;
  std::shared_ptr<std::atomic<bool>> _done;
};

}  // namespace kestrel::streams
