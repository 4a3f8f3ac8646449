#pragma once

#include <exception>
#include <future>

namespace kestrel::streams {

/// The start of a producer or consumer: what fails may be tried again, what has succeeded is not done twice.
/// Not thread-safe.
class StartOnce {
 public:
  [[nodiscard]] bool done() const { return _done.valid(); }

  /// Does the work unless it has been done; the future is ready and holds what the work threw.
  template <class Work>
  [[nodiscard]] std::shared_future<void> run(Work&& work) {
    if (done()) return _done;
    std::promise<void> promise;
    auto result = promise.get_future().share();
    try {
      work();
      promise.set_value();
      _done = result;
    } catch (...) {
      promise.set_exception(std::current_exception());
    }
    return result;
  }

 private:
  std::shared_future<void> _done;
};

}  // namespace kestrel::streams
