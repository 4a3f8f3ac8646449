#pragma once

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

namespace kestrel::callbacks {

/// Lets threads use something until the end of the process takes it. A function that needs it passes the gate
/// first; a Closer that is made right after the thing is destroyed right before it, and waits for who is
/// inside. Safe from any thread; itself to be a static object that is never destroyed.
class ExitGate {
 public:
  /// The right to use it; empty once the gate is closed.
  class Pass {
   public:
    explicit Pass(ExitGate* gate) : _gate(gate) {}
    Pass(Pass&& other) noexcept : _gate(std::exchange(other._gate, nullptr)) {}
    Pass& operator=(Pass&&) = delete;
    ~Pass() {
      if (_gate != nullptr) --_gate->_inside;
    }
    explicit operator bool() const { return _gate != nullptr; }

   private:
    ExitGate* _gate;
  };

  /// Closes the gate when it is destroyed.
  class Closer {
   public:
    explicit Closer(ExitGate& gate) : _gate(gate) {}
    ~Closer() { _gate.close(); }
    Closer(const Closer&) = delete;
    Closer& operator=(const Closer&) = delete;

   private:
    ExitGate& _gate;
  };

  [[nodiscard]] Pass enter() noexcept {
    ++_inside;  // before the look at the gate, so that close() sees who has not seen it closed
    Pass pass(this);
    if (_closed) return Pass(nullptr);
    return pass;
  }

 private:
  /// Bounded, since the process must end even if who is inside never leaves, as in the child of a fork, or is
  /// the one that ends it.
  void close() noexcept {
    constexpr int patience = 200;
    _closed = true;
    for (int i = 0; i < patience && _inside > 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  std::atomic<int> _inside{0};
  std::atomic<bool> _closed{false};
};

}  // namespace kestrel::callbacks
