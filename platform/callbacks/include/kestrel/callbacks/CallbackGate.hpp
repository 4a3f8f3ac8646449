#pragma once

#include <algorithm>
#include <condition_variable>
#include <thread>
#include <utility>
#include <vector>

#include "kestrel/callbacks/ThreadSafety.hpp"

namespace kestrel::callbacks {

/// Lets the callbacks of an owner run until the owner goes. Safe from any thread; shared by the owner and its
/// callbacks where these may come after it is gone. Callbacks run with no lock of the gate held.
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
    const MutexLock lock(_mutex);
    if (_closed) return Pass(nullptr);
    _inside.push_back(std::this_thread::get_id());
    return Pass(this);
  }

  /// Runs the function unless the gate is closed, and returns whether it ran.
  template <class Function>
  bool run(Function&& function) {
    const Pass pass = enter();
    if (pass) std::forward<Function>(function)();
    return static_cast<bool>(pass);
  }

  /// Refuses every later callback; does not wait.
  void refuse() {
    const MutexLock lock(_mutex);
    _closed = true;
  }

  /// After it has returned nothing runs and nothing will, except when it is called from inside a callback:
  /// then it waits for nobody, and that run is the last.
  void close() {
    UniqueLock lock(_mutex);
    _closed = true;
    if (holds(std::this_thread::get_id())) return;
    _left.wait(lock.native(), [this]() KESTREL_REQUIRES(_mutex) { return _inside.empty(); });
  }

  [[nodiscard]] bool closed() const {
    const MutexLock lock(_mutex);
    return _closed;
  }

  /// Whether the calling thread is inside a callback.
  [[nodiscard]] bool holdsThisThread() const {
    const MutexLock lock(_mutex);
    return holds(std::this_thread::get_id());
  }

 private:
  void leave() noexcept {
    // Notified under the lock: who waits may destroy the gate as soon as it has the lock.
    const MutexLock lock(_mutex);
    _inside.erase(std::find(_inside.begin(), _inside.end(), std::this_thread::get_id()));
    if (_inside.empty()) _left.notify_all();
  }

  [[nodiscard]] bool holds(std::thread::id thread) const KESTREL_REQUIRES(_mutex) {
    return std::find(_inside.begin(), _inside.end(), thread) != _inside.end();
  }

  mutable Mutex _mutex;
  std::condition_variable _left;
  std::vector<std::thread::id> _inside KESTREL_GUARDED_BY(_mutex);
  bool _closed KESTREL_GUARDED_BY(_mutex) = false;
};

}  // namespace kestrel::callbacks
