#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

#include "kestrel/export/Export.hpp"
#include "kestrel/threadpool/ThreadPool.hpp"

namespace kestrel::threadpool {

struct ThreadPoolOptions {
  std::chrono::milliseconds idleTime = std::chrono::seconds(10);  ///< a thread without work ends after this
  std::size_t keptThreads = 4;                                    ///< so many threads stay all the same
};

/// Makes a pool with one thread for points in time and as many workers as there is work at once. Threads of
/// work start on demand.
///
/// Releasing the last owner drops the work that has not begun and waits for what runs. If the last owner goes
/// inside work of the pool, that work is not waited for: its thread ends when the work returns.
[[nodiscard]] KESTREL_EXPORT std::shared_ptr<ThreadPool> makeThreadPool(
    const ThreadPoolOptions& options = {});

}  // namespace kestrel::threadpool
