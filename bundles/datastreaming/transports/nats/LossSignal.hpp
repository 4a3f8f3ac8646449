#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <stop_token>

#include "transports/nats/NatsSession.hpp"

namespace kestrel::streams {

/// What the thread that keeps a connection up waits for. Safe from any thread.
class LossSignal final : public LossListener {
 public:
  void lost(std::uint64_t session) override {
    const std::lock_guard lock(_mutex);
    _lost = std::max(_lost, session);
    _changed.notify_all();
  }

  /// Returns false once stop is requested.
  [[nodiscard]] bool waitForLoss(std::uint64_t session, const std::stop_token& stop) {
    std::unique_lock lock(_mutex);
    return _changed.wait(lock, stop, [&] { return _lost >= session; }) && !stop.stop_requested();
  }

  /// Returns false once stop is requested.
  [[nodiscard]] bool sleep(std::chrono::milliseconds time, const std::stop_token& stop) {
    std::unique_lock lock(_mutex);
    _changed.wait_for(lock, stop, time, [] { return false; });
    return !stop.stop_requested();
  }

 private:
  std::mutex _mutex;
  std::condition_variable_any _changed;
  std::uint64_t _lost = 0;  // the newest; guarded by _mutex
};

}  // namespace kestrel::streams
