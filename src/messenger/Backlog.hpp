#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>

#include "kestrel/callbacks/ThreadSafety.hpp"

namespace remote_connectivity::asyncio::util {

/// What waits in a producer buffer, and where those wait who would make it grow. Safe for several threads.
class Backlog {
 public:
  /// What a message costs beyond its bytes: its place in the queue, its attributes, what the allocator adds.
  static constexpr std::size_t overhead = 256;

  void add(std::size_t messageSize) { change(static_cast<std::int64_t>(messageSize + overhead)); }
  void remove(std::size_t messageSize) { change(-static_cast<std::int64_t>(messageSize + overhead)); }

  /// Waits while more bytes than the limit are queued; false once released. Calls the function with the bytes
  /// before the first wait, and again only after the queue was down to half of the limit.
  template <class Function>
  [[nodiscard]] bool awaitRoom(std::uint64_t limit, Function&& beforeWaiting) {
    const auto most = static_cast<std::int64_t>(limit);
    kestrel::callbacks::UniqueLock lock(_mutex);
    if (_bytes <= most / 2) _told = false;
    if (_bytes > most && !_released && !_told) {
      _told = true;
      beforeWaiting(_bytes);
    }
    _changed.wait(lock.native(), [&]() KESTREL_REQUIRES(_mutex) { return _bytes <= most || _released; });
    return !_released;
  }

  /// Ends every wait, now and later.
  void release() {
    {
      const kestrel::callbacks::MutexLock lock(_mutex);
      _released = true;
    }
    _changed.notify_all();
  }

 private:
  void change(std::int64_t bytes) {
    {
      const kestrel::callbacks::MutexLock lock(_mutex);
      _bytes += bytes;
    }
    if (bytes < 0) _changed.notify_all();
  }

  kestrel::callbacks::Mutex _mutex;
  std::condition_variable _changed;
  // Below 0 for a moment where a message leaves before it was added.
  std::int64_t _bytes KESTREL_GUARDED_BY(_mutex) = 0;
  bool _told KESTREL_GUARDED_BY(_mutex) = false;
  bool _released KESTREL_GUARDED_BY(_mutex) = false;
};

}  // namespace remote_connectivity::asyncio::util
