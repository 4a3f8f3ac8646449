#include "kestrel/threadpool/ScheduledTaskSubmitter.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "SubmitterState.hpp"

namespace kestrel::threadpool {

namespace {

/// Later than any process lives, and far from the end of the clock's range.
constexpr auto longestDelay = std::chrono::hours(24 * 365 * 50);

void requireWork(const ScheduledTaskSubmitter::Work& work) {
  if (!work) throw std::invalid_argument("ScheduledTaskSubmitter: expected work, got an empty function");
}

}  // namespace

ScheduledTaskSubmitter::ScheduledTaskSubmitter(std::shared_ptr<ThreadPool> pool) {
  if (!pool) {
    throw std::invalid_argument("ScheduledTaskSubmitter: expected a thread pool, got an empty pointer");
  }
  _state = std::make_shared<State>(std::move(pool));
}

ScheduledTaskSubmitter::~ScheduledTaskSubmitter() {
  shutdown();
}

stop_source ScheduledTaskSubmitter::postWork(Work work, std::chrono::milliseconds interval, bool startNow) {
  requireWork(work);
  if (interval < interval.zero()) {
    throw std::invalid_argument("ScheduledTaskSubmitter: expected an interval of 0 ms or more, got " +
                                std::to_string(interval.count()) + " ms");
  }
  const State::Clock::duration delay = std::min<std::chrono::milliseconds>(interval, longestDelay);
  return _state->post(std::move(work), startNow ? delay.zero() : delay, delay);
}

stop_source ScheduledTaskSubmitter::postWork(Work&& work, std::chrono::system_clock::time_point when) {
  requireWork(work);
  const auto now = std::chrono::system_clock::now();
  State::Clock::duration delay{};
  if (when > now) delay = std::min<State::Clock::duration>(when - now, longestDelay);
  return _state->post(std::move(work), delay, std::nullopt);
}

void ScheduledTaskSubmitter::shutdown() {
  _state->shutdown();
}

}  // namespace kestrel::threadpool
