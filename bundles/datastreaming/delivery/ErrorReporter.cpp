#include "delivery/ErrorReporter.hpp"

#include <system_error>
#include <utility>

#include "delivery/Log.hpp"

namespace kestrel::streams {

ErrorReporter::ErrorReporter(std::size_t bound) : _state(std::make_shared<State>(bound)) {}

ErrorReporter::~ErrorReporter() {
  callbacks::UniqueLock lock(_state->mutex);
  _state->stopped = true;
  _state->wake.notify_one();
  // If a task destroys the reporter, what is left runs here, so that the thread, which its owner cannot wait
  // for, has nothing to do but end.
  while (_thread.isCurrent() && !_state->tasks.empty()) runNext(*_state);
  lock.unlock();
  _thread.end();
}

void ErrorReporter::post(std::function<void()> task) {
  const callbacks::MutexLock lock(_state->mutex);
  if (_state->tasks.size() >= _state->bound) {
    ++_state->dropped;
    return;
  }
  _state->tasks.push_back(std::move(task));
  if (_thread.started()) {
    _state->wake.notify_one();
    return;
  }
  try {
    _thread.start("kestrel-errors", [state = _state] { run(*state); });
  } catch (const std::system_error&) {  // tried again with the next failure
  }
}

void ErrorReporter::run(State& state) {
  callbacks::UniqueLock lock(state.mutex);
  while (true) {
    state.wake.wait(lock.native(),
                    [&]() KESTREL_REQUIRES(state.mutex) { return state.stopped || !state.tasks.empty(); });
    if (state.tasks.empty()) return;
    runNext(state);
  }
}

void ErrorReporter::runNext(State& state) {
  auto task = std::move(state.tasks.front());
  state.tasks.pop_front();
  const std::uint64_t dropped = std::exchange(state.dropped, 0);
  state.mutex.unlock();
  if (dropped > 0) logError(std::to_string(dropped) + " further errors were not reported, too many at once");
  task();
  task = nullptr;  // what it holds may be the last owner of much, so never under the lock
  state.mutex.lock();
}

}  // namespace kestrel::streams
