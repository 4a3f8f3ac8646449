#pragma once

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "kestrel/callbacks/ThreadSafety.hpp"

namespace kestrel::threadpool {

/// Hands work on at given points in time, on one thread of its own that does nothing else.
class TimerQueue {
 public:
  using Work = std::function<void()>;

  /// `handOver` takes the work that is due; it must return soon.
  explicit TimerQueue(std::function<void(Work)> handOver);
  ~TimerQueue() { close(); }
  TimerQueue(const TimerQueue&) = delete;
  TimerQueue& operator=(const TimerQueue&) = delete;

  /// Safe for several threads at once. Once closed, the work is dropped.
  void add(std::chrono::steady_clock::time_point when, Work work);

  /// Ends the thread (unless called on it, when it ends soon after) and drops the work that is not yet due.
  void close();

 private:
  const std::function<void(Work)> _handOver;
  callbacks::Mutex _mutex;
  // Empty once closed. Shared with the thread.
  std::shared_ptr<boost::asio::io_context> _context KESTREL_GUARDED_BY(_mutex);
  std::thread _thread KESTREL_GUARDED_BY(_mutex);
};

}  // namespace kestrel::threadpool
