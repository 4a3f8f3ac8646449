#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <stop_token>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/nats/connection/Session.hpp"

namespace kestrel::streams {

/// What the thread that keeps a connection up waits for. Safe from any thread.
class LossSignal final : public LossListener {
 public:
  void lost(std::uint64_t session) override {
    const callbacks::MutexLock lock(_mutex);
    _lost = std::max(_lost, session);
    _changed.notify_all();
  }

  /// Returns false once stop is requested.
  [[nodiscard]] bool waitForLoss(std::uint64_t session, const std::stop_token& stop) {
    callbacks::UniqueLock lock(_mutex);
    return _changed.wait(lock, stop, [&]() KESTREL_REQUIRES(_mutex) { return _lost >= session; }) &&
           !stop.stop_requested();
  }

  /// Returns false once stop is requested.
  [[nodiscard]] bool sleep(std::chrono::milliseconds time, const std::stop_token& stop) {
    callbacks::UniqueLock lock(_mutex);
    _changed.wait_for(lock, stop, time, [] { return false; });
    return !stop.stop_requested();
  }

 private:
  callbacks::Mutex _mutex;
  std::condition_variable_any _changed;
  std::uint64_t _lost KESTREL_GUARDED_BY(_mutex) = 0;  // the newest
};

}  // namespace kestrel::streams
