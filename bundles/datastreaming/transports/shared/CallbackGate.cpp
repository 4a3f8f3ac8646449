#include "transports/shared/CallbackGate.hpp"

namespace kestrel::streams {

bool CallbackGate::enter() {
  const std::lock_guard lock(_mutex);
  if (_closed) return false;
  _runner = std::this_thread::get_id();
  return true;
}

void CallbackGate::leave() noexcept {
  // Notified under the lock: the one who waits may destroy the gate as soon as it has the lock.
  const std::lock_guard lock(_mutex);
  _runner = {};
  if (_closed) _left.notify_all();
}

void CallbackGate::close() {
  std::unique_lock lock(_mutex);
  _closed = true;
  if (_runner == std::this_thread::get_id()) return;
  _left.wait(lock, [this] { return _runner == std::thread::id{}; });
}

bool CallbackGate::closed() const {
  const std::lock_guard lock(_mutex);
  return _closed;
}

}  // namespace kestrel::streams
