#pragma once

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace remote_connectivity::asyncio::util {

/// Counts the callbacks that run inside an object, so that its destructor can refuse new ones and wait for
/// those. Shared by the object and its callbacks, which may come after it is gone.
class CallbackGate {
 public:
  /// The right to be inside, held for the length of a callback; empty if the gate was closed.
  class Pass {
   public:
    explicit Pass(CallbackGate* gate) : _gate(gate) {}
    Pass(Pass&& other) noexcept : _gate(std::exchange(other._gate, nullptr)) {}
    Pass& operator=(Pass&&) = delete;
    ~Pass() {
      if (_gate != nullptr) _gate->leave();
    }
    explicit operator bool() const { return _gate != nullptr; }

   private:
    CallbackGate* _gate;
  };

  [[nodiscard]] Pass enter() {
    const std::lock_guard lock(_mutex);
    if (_closed) return Pass(nullptr);
    _inside.push_back(std::this_thread::get_id());
    return Pass(this);
  }

  /// Refuses every later enter().
  void close() {
    const std::lock_guard lock(_mutex);
    _closed = true;
  }

  /// Waits until nobody is inside; close() comes first, and the caller must not be inside.
  void waitUntilEmpty() {
    std::unique_lock lock(_mutex);
    _left.wait(lock, [this] { return _inside.empty(); });
  }

  [[nodiscard]] bool holdsThisThread() const {
    const std::lock_guard lock(_mutex);
    return std::find(_inside.begin(), _inside.end(), std::this_thread::get_id()) != _inside.end();
  }

 private:
  void leave() {
    const std::lock_guard lock(_mutex);
    _inside.erase(std::find(_inside.begin(), _inside.end(), std::this_thread::get_id()));
    if (_inside.empty()) _left.notify_all();
  }

  mutable std::mutex _mutex;  // guards the members below
  std::condition_variable _left;
  std::vector<std::thread::id> _inside;
  bool _closed = false;
};

}  // namespace remote_connectivity::asyncio::util
