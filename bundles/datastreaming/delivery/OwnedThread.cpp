#include "delivery/OwnedThread.hpp"

#include <chrono>
#include <utility>
#include <vector>

#include "delivery/Log.hpp"
#include "delivery/ThreadName.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"

namespace kestrel::streams {

namespace {

/// Threads that have lost their owners. Safe from any thread.
class Orphans {
 public:
  /// Never destroyed: an orphan may itself leave one behind while the process ends.
  static Orphans& shared() {
    static auto* const orphans = new Orphans;
    return *orphans;
  }

  void add(std::thread thread, std::shared_ptr<std::atomic<bool>> done) {
    const callbacks::MutexLock lock(_mutex);
    std::erase_if(_orphans, [](Orphan& orphan) {
      if (!*orphan.done) return false;
      orphan.thread.join();
      return true;
    });
    _orphans.push_back({std::move(thread), std::move(done)});
  }

  void waitForAll() {
    std::vector<Orphan> orphans;
    {
      const callbacks::MutexLock lock(_mutex);
      orphans.swap(_orphans);
    }
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (Orphan& orphan : orphans) {
      const bool isCurrent = orphan.thread.get_id() == std::this_thread::get_id();
      while (!isCurrent && !*orphan.done && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      *orphan.done ? orphan.thread.join() : orphan.thread.detach();
    }
  }

 private:
  // Closing a connection may take as long: two flushes, a write over TLS and an attempt to reconnect.
  static constexpr std::chrono::seconds patience{10};

  struct Orphan {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> done;
  };

  callbacks::Mutex _mutex;
  std::vector<Orphan> _orphans KESTREL_GUARDED_BY(_mutex);
};

/// Destroyed at the end of the process, or as this code is unloaded.
struct WaitsForOrphans {
  WaitsForOrphans() { prepareLog(); }  // which is destroyed later, then
  ~WaitsForOrphans() { Orphans::shared().waitForAll(); }
};

}  // namespace

void OwnedThread::start(const char* name, std::function<void()> work) {
  _done = std::make_shared<std::atomic<bool>>(false);
  _thread = std::thread([name, work = std::move(work), done = _done]() mutable {
    nameThisThread(name);
    work();
    work = nullptr;
    *done = true;
  });
}

void OwnedThread::end() {
  if (!_thread.joinable()) return;
  if (isCurrent()) {
    static const WaitsForOrphans atTheEnd;
    Orphans::shared().add(std::move(_thread), std::move(_done));
  } else {
    _thread.join();
  }
}

}  // namespace kestrel::streams
