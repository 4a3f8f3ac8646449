#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

namespace kestrel::streams {

/// Lets an owner's callback run until the owner goes. run() is called by one thread at a time; close() by
/// any.
class CallbackGate {
 public:
  /// Runs the function, with no lock held, unless the gate is closed. Returns whether it ran.
  template <class Function>
  bool run(Function&& function) {
    if (!enter()) return false;
    const Passage passage{*this};
    std::forward<Function>(function)();
    return true;
  }

  /// After it has returned nothing runs and nothing will, except when it is called from inside the callback:
  /// then that run is the last, and it does not wait for it.
  void close();

  [[nodiscard]] bool closed() const;

 private:
  struct Passage {
    CallbackGate& gate;
    ~Passage() { gate.leave(); }
  };

  bool enter();
  void leave() noexcept;

  mutable std::mutex _mutex;
  // Guarded by _mutex.
  std::condition_variable _left;
  std::thread::id _runner;
  bool _closed = false;
};

}  // namespace kestrel::streams
