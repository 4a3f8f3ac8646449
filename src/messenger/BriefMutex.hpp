#pragma once

#include <mutex>

#include "kestrel/callbacks/ThreadSafety.hpp"

namespace remote_connectivity::asyncio::util {

/// A mutex for sections of a few microseconds that many threads enter: whoever finds it taken tries for about
/// as long before it goes to sleep, for sleeping and being woken takes longer than that.
class KESTREL_CAPABILITY BriefMutex {
 public:
  void lock() KESTREL_ACQUIRE() {
    for (int i = 0; i < attempts; ++i) {
      if (_mutex.try_lock()) return;
      pause();
    }
    _mutex.lock();
  }
  void unlock() KESTREL_RELEASE() { _mutex.unlock(); }

 private:
  static constexpr int attempts = 100;

  static void pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
  }

  std::mutex _mutex;
};

}  // namespace remote_connectivity::asyncio::util
