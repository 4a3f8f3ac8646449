#include "transports/shared/ErrorReporter.hpp"

#include <utility>

#include "transports/shared/Log.hpp"
#include "transports/shared/ThreadName.hpp"

namespace kestrel::streams {

ErrorReporter::ErrorReporter(std::size_t bound) : _state(std::make_shared<State>(bound)) {}

ErrorReporter::~ErrorReporter() {
  {
    const std::lock_guard lock(_state->mutex);
    _state->stopped = true;
    _state->wake.notify_one();
  }
  if (!_thread.joinable()) return;
  if (_thread.get_id() == std::this_thread::get_id()) {
    _thread.detach();
  } else {
    _thread.join();
  }
}

void ErrorReporter::post(std::function<void()> task) {
  const std::lock_guard lock(_state->mutex);
  if (_state->tasks.size() >= _state->bound) {
    ++_state->dropped;
    return;
  }
  _state->tasks.push_back(std::move(task));
  if (_thread.joinable()) {
    _state->wake.notify_one();
    return;
  }
  try {
    _thread = std::thread([state = _state] { run(state); });
  } catch (const std::system_error&) {  // tried again with the next failure
  }
}

void ErrorReporter::run(const std::shared_ptr<State>& state) {
  nameThisThread("kestrel-errors");
  std::unique_lock lock(state->mutex);
  while (true) {
    state->wake.wait(lock, [&] { return state->stopped || !state->tasks.empty(); });
    if (state->stopped) break;
    auto task = std::move(state->tasks.front());
    state->tasks.pop_front();
    const std::uint64_t dropped = std::exchange(state->dropped, 0);
    lock.unlock();
    if (dropped > 0)
      logError(std::to_string(dropped) + " further errors were not reported, too many at once");
    task();
    task = nullptr;  // what it owns may be the reporter itself, so never under the lock
    lock.lock();
  }
  const auto abandoned = std::exchange(state->tasks, {});
  lock.unlock();
}

}  // namespace kestrel::streams
