#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <thread>
#include <unordered_map>
#include <vector>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "kestrel/threadpool/makeThreadPool.hpp"

namespace kestrel::threadpool {

/// The threads that run work, and the work that waits for them. Shared by the pool, its timer and the threads
/// themselves, so that a thread whose own work destroys the pool still ends in live state.
class Workers : public std::enable_shared_from_this<Workers> {
 public:
  using Work = std::function<void()>;

  explicit Workers(const ThreadPoolOptions& options) : _options(options) {}

  /// Throws std::system_error when the work needs a thread and the system gives none at all. Once closed, the
  /// work is dropped.
  void submit(Work work);

  /// Drops the work that waits and joins the threads, all but the calling one.
  void close();

 private:
  /// A thread that sleeps until it is given a reason to look at the queue.
  struct Sleeper {
    std::condition_variable wake;
    bool woken = false;  // guarded by _mutex
  };

  bool ensureSeeker() noexcept KESTREL_REQUIRES(_mutex);
  void startThread() KESTREL_REQUIRES(_mutex);
  void runThread();
  bool sleep(callbacks::UniqueLock& lock) KESTREL_REQUIRES(_mutex);
  std::thread retire() KESTREL_REQUIRES(_mutex);

  const ThreadPoolOptions _options;
  callbacks::Mutex _mutex;
  // Threads on their way to the queue, which look at it before they run anything or sleep. While the queue is
  // not empty there is at least one, and who takes work calls the next: so none waits behind work that
  // blocks, and a burst of short work starts no more threads than run at once. Grows at any time, shrinks
  // under _mutex.
  std::atomic<std::size_t> _seekers{0};
  std::deque<Work> _queue KESTREL_GUARDED_BY(_mutex);
  // The last to sleep wakes first, so that surplus threads sleep to their end.
  std::vector<Sleeper*> _sleepers KESTREL_GUARDED_BY(_mutex);
  std::unordered_map<std::thread::id, std::thread> _threads KESTREL_GUARDED_BY(_mutex);
  std::thread _retired KESTREL_GUARDED_BY(_mutex);  // has ended its loop; joined by the next one to retire
  bool _closed KESTREL_GUARDED_BY(_mutex) = false;
};

}  // namespace kestrel::threadpool
