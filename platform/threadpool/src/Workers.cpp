#include "Workers.hpp"

#include <pthread.h>

#include <system_error>
#include <utility>

#include "Logging.hpp"

namespace kestrel::threadpool {

namespace {

/// Takes the work over, so that its captures are gone when this returns.
void runAndRelease(Workers::Work work) noexcept {
  try {
    work();
  } catch (...) {
    logCurrentException("Work on the thread pool failed");
  }
}

}  // namespace

void Workers::submit(Work work) {
  bool isDelayed = false;
  {
    const callbacks::MutexLock lock(_mutex);
    if (_closed) return;
    _queue.push_back(std::move(work));
    isDelayed = !ensureSeeker();
    if (isDelayed && _threads.empty()) {
      work = std::move(_queue.back());  // dropped by the caller, outside the lock
      _queue.pop_back();
      throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again),
                              "ThreadPool: no thread could be started");
    }
  }
  if (isDelayed) {
    logger().log(diagnostics::Severity::error, "No thread could be started; work waits for a running thread");
  }
}

/// Returns false when work is left to the threads that run, as no further one can be started.
bool Workers::ensureSeeker() noexcept {
  if (_queue.empty() || _seekers > 0) return true;
  if (_sleepers.empty()) {
    try {
      startThread();
    } catch (...) {
      return false;
    }
    return true;
  }
  auto* sleeper = _sleepers.back();
  _sleepers.pop_back();
  ++_seekers;
  sleeper->woken = true;
  sleeper->wake.notify_one();  // under the lock, as the sleeper lives on its thread's stack
  return true;
}

void Workers::startThread() {
  std::thread thread([self = shared_from_this()] { self->runThread(); });
  const auto id = thread.get_id();
  _threads.emplace(id, std::move(thread));
  ++_seekers;
}

void Workers::runThread() {
  pthread_setname_np(pthread_self(), "kestrel-worker");
  callbacks::UniqueLock lock(_mutex);
  while (!_closed) {
    if (_queue.empty()) {
      if (!sleep(lock) && _threads.size() > _options.keptThreads) {
        auto earlier = retire();
        lock.unlock();
        if (earlier.joinable()) earlier.join();
        return;
      }
      continue;
    }
    auto work = std::move(_queue.front());
    _queue.pop_front();
    --_seekers;
    ensureSeeker();
    lock.unlock();
    runAndRelease(std::move(work));
    ++_seekers;  // before the lock: submit() must not start another thread while this one queues for it
    lock.lock();
  }
}

/// Returns whether the thread was woken; if not, it has slept for the idle time.
bool Workers::sleep(callbacks::UniqueLock& lock) {
  Sleeper self;
  _sleepers.push_back(&self);
  --_seekers;
  if (self.wake.wait_for(lock.native(), _options.idleTime, [&] { return self.woken; })) return true;
  std::erase(_sleepers, &self);
  ++_seekers;
  return false;
}

/// Leaves the calling thread for the next one to retire, and returns the one that was left before.
std::thread Workers::retire() {
  --_seekers;
  const auto self = _threads.find(std::this_thread::get_id());
  auto earlier = std::exchange(_retired, std::move(self->second));
  _threads.erase(self);
  return earlier;
}

void Workers::close() {
  std::deque<Work> dropped;
  std::unordered_map<std::thread::id, std::thread> threads;
  std::thread retired;
  {
    const callbacks::MutexLock lock(_mutex);
    _closed = true;
    dropped.swap(_queue);
    threads.swap(_threads);
    retired = std::move(_retired);
    for (auto* sleeper : std::exchange(_sleepers, {})) {
      sleeper->woken = true;
      sleeper->wake.notify_one();
    }
  }
  dropped.clear();  // before the join: what runs may wait for a promise in here to break
  for (auto& [id, thread] : threads) {
    if (id == std::this_thread::get_id()) {
      thread.detach();
    } else {
      thread.join();
    }
  }
  if (retired.joinable()) retired.join();
}

}  // namespace kestrel::threadpool
