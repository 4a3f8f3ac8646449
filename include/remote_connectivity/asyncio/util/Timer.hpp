#pragma once

#include <memory>
#include <stop_token>

#include "remote_connectivity/asyncio/util/ITimer.hpp"

namespace kestrel::threadpool {
class ScheduledTaskSubmitter;
class ThreadPool;
}  // namespace kestrel::threadpool

namespace remote_connectivity::asyncio::util {

/// A restartable one-shot timer on the host's thread pool.
///
/// The callback runs on a pool thread, with no lock held. What it throws is logged by the pool and dropped.
/// It may call every operation of the timer and destroy it. Apart from that the operations must not race with
/// one another, nor setCallback() with an expiry; stop() may. A timer may be destroyed on any thread, armed
/// or not: no callback begins afterwards, and one in flight on another thread is waited for.
class REMOTE_CONNECTIVITY_EXPORT Timer : public ITimer {
 public:
  /// Throws std::invalid_argument where the host has no thread pool.
  Timer();
  ~Timer() override;
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  void setCallback(std::function<void()>&& callback) override;

  /// Throws what the pool throws where it cannot take work, and the timer is as it was.
  void start(unsigned int seconds) override;
  void restart(unsigned int seconds) override;
  void stop() override;

  /// What an expiry does: calls the callback, if there is one and the expiry was not cancelled.
  void onTimerExpired(bool stopRequested);

 private:
  std::shared_ptr<kestrel::threadpool::ThreadPool> _threadPool;
  std::shared_ptr<kestrel::threadpool::ScheduledTaskSubmitter> _scheduler;
  std::stop_source _stopSource;     // of the expiry armed last
  std::function<void()> _callback;  // copies share what it calls
};

}  // namespace remote_connectivity::asyncio::util
