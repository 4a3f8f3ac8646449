#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <utility>

#include "kestrel/callbacks/ThreadSafety.hpp"

namespace remote_connectivity::asyncio::util {

/// Holds a handler that may be replaced while it is in use. Callers get shared ownership, so a handler is
/// called without a lock and outlives its replacement until it has returned.
template <class Signature>
class HandlerSlot {
 public:
  using Handler = std::function<Signature>;

  void set(Handler handler) {
    auto replacement = std::make_shared<const Handler>(std::move(handler));
    {
      const kestrel::callbacks::MutexLock lock(_mutex);
      _handler.swap(replacement);
    }
    _changed.notify_all();
  }

  /// The handler, which may be empty; never a null pointer.
  [[nodiscard]] std::shared_ptr<const Handler> get() const {
    const kestrel::callbacks::MutexLock lock(_mutex);
    return _handler;
  }

  /// The handler as soon as one is set; what there is once the time given up at has come or release() was
  /// called. Until giveUpAt() has been called it waits however long it takes.
  [[nodiscard]] std::shared_ptr<const Handler> awaited() const {
    kestrel::callbacks::UniqueLock lock(_mutex);
    while (!*_handler && !_released && Clock::now() < _giveUpAt) {
      if (_giveUpAt == Clock::time_point::max()) {
        _changed.wait(lock.native());
      } else {
        _changed.wait_until(lock.native(), _giveUpAt);
      }
    }
    return _handler;
  }

  /// Sets the time at which waits end, also those that are under way.
  void giveUpAt(std::chrono::steady_clock::time_point time) {
    {
      const kestrel::callbacks::MutexLock lock(_mutex);
      _giveUpAt = time;
    }
    _changed.notify_all();
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
  using Clock = std::chrono::steady_clock;

  mutable kestrel::callbacks::Mutex _mutex;
  mutable std::condition_variable _changed;
  std::shared_ptr<const Handler> _handler KESTREL_GUARDED_BY(_mutex) = std::make_shared<const Handler>();
  Clock::time_point _giveUpAt KESTREL_GUARDED_BY(_mutex) = Clock::time_point::max();
  bool _released KESTREL_GUARDED_BY(_mutex) = false;
};

}  // namespace remote_connectivity::asyncio::util
