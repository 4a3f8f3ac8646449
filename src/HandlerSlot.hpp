#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

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
      const std::lock_guard lock(_mutex);
      _handler.swap(replacement);
    }
    _changed.notify_all();
  }

  /// The handler, which may be empty; never a null pointer.
  [[nodiscard]] std::shared_ptr<const Handler> get() const {
    const std::lock_guard lock(_mutex);
    return _handler;
  }

  /// The handler as soon as one is set; what there is once the deadline has passed or release() was called.
  [[nodiscard]] std::shared_ptr<const Handler> waitFor(std::chrono::steady_clock::time_point deadline) const {
    std::unique_lock lock(_mutex);
    if (!*_handler && !_released) {
      _changed.wait_until(lock, deadline, [this] { return *_handler || _released; });
    }
    return _handler;
  }

  /// Ends every wait, now and later.
  void release() {
    {
      const std::lock_guard lock(_mutex);
      _released = true;
    }
    _changed.notify_all();
  }

 private:
  mutable std::mutex _mutex;  // guards the members below
  mutable std::condition_variable _changed;
  std::shared_ptr<const Handler> _handler = std::make_shared<const Handler>();
  bool _released = false;
};

}  // namespace remote_connectivity::asyncio::util
