#include "remote_connectivity/asyncio/util/Timer.hpp"

#include <chrono>
#include <latch>
#include <utility>

#include "kestrel/framework/ServiceLookup.hpp"
#include "kestrel/threadpool/ScheduledTaskSubmitter.hpp"

namespace remote_connectivity::asyncio::util {

using kestrel::threadpool::ScheduledTaskSubmitter;
using kestrel::threadpool::stop_token;

Timer::Timer()
    : _threadPool(kestrel::framework::findService<kestrel::threadpool::ThreadPool>()),
      _scheduler(std::make_shared<ScheduledTaskSubmitter>(_threadPool)) {}

// Before any member goes: expiries refer to this object.
Timer::~Timer() {
  _scheduler->shutdown();
}

void Timer::setCallback(std::function<void()>&& callback) {
  if (!callback) {
    _callback = nullptr;
    return;
  }
  // Behind a shared pointer, so that an expiry can hold the callback while the callback replaces itself.
  _callback = [shared = std::make_shared<std::function<void()>>(std::move(callback))] { (*shared)(); };
}

void Timer::start(unsigned int seconds) {
  // The expiry may begin before postWork() returns; its callback may use the stop source, so it waits for it.
  const auto armed = std::make_shared<std::latch>(1);
  const auto expiry = std::chrono::system_clock::now() + std::chrono::seconds(seconds);
  _stopSource = _scheduler->postWork(
      [this, armed](stop_token token) {
        armed->wait();
        onTimerExpired(token.stop_requested());
      },
      expiry);
  armed->count_down();
}

void Timer::restart(unsigned int seconds) {
  ITimer& self = *this;  // through the virtual table, so that an override counts here too
  self.stop();
  self.start(seconds);
}

void Timer::stop() {
  _stopSource.request_stop();
}

void Timer::onTimerExpired(bool stopRequested) {
  if (stopRequested || !_callback) return;
  const auto callback = _callback;  // the timer may be gone before the call returns
  callback();
}

}  // namespace remote_connectivity::asyncio::util
