#include "TimerQueue.hpp"

#include <pthread.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/steady_timer.hpp>
#include <utility>

#include "Logging.hpp"

namespace kestrel::threadpool {

namespace {

using Context = boost::asio::io_context;

struct Delayed {
  Delayed(Context& context, std::chrono::steady_clock::time_point when, TimerQueue::Work delayed)
      : timer(context, when), work(std::move(delayed)) {}

  boost::asio::steady_timer timer;
  TimerQueue::Work work;
};

void runContext(Context& context) {
  pthread_setname_np(pthread_self(), "kestrel-timer");
  const auto keepRunning = boost::asio::make_work_guard(context);
  context.run();
}

}  // namespace

TimerQueue::TimerQueue(std::function<void(Work)> handOver)
    : _handOver(std::move(handOver)),
      _context(std::make_shared<Context>(1)),
      _thread([context = _context] { runContext(*context); }) {}

void TimerQueue::add(std::chrono::steady_clock::time_point when, Work work) {
  const callbacks::MutexLock lock(_mutex);
  if (!_context) return;
  // The context owns the pending wait and with it the timer: what is not yet due goes with the context.
  auto delayed = std::make_shared<Delayed>(*_context, when, std::move(work));
  auto& timer = delayed->timer;
  timer.async_wait([delayed = std::move(delayed), handOver = _handOver](boost::system::error_code error) {
    if (error) return;
    try {
      handOver(std::move(delayed->work));
    } catch (...) {
      logCurrentException("Work that was due is lost");
    }
  });
}

void TimerQueue::close() {
  std::shared_ptr<Context> context;
  std::thread thread;
  {
    const callbacks::MutexLock lock(_mutex);
    context.swap(_context);
    thread.swap(_thread);
  }
  if (!context) return;
  context->stop();
  if (thread.get_id() == std::this_thread::get_id()) {
    thread.detach();
  } else {
    thread.join();
  }
}

}  // namespace kestrel::threadpool
