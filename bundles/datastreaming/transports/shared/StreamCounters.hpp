#pragma once

#include <atomic>
#include <cstdint>
#include <kestrel/datastreaming/Statistics.hpp>
#include <mutex>
#include <string>

namespace kestrel::streams {

/// What one stream carried, as it is counted. Safe from any thread.
class StreamCounters {
 public:
  using Counter = std::atomic<std::uint64_t>;

  Counter messagesSent{0};
  Counter bytesSent{0};
  Counter messagesReceived{0};
  Counter bytesReceived{0};
  Counter payloadsReceived{0};
  Counter refused{0};
  Counter lost{0};
  Counter copies{0};
  Counter reconnects{0};

  static void add(Counter& counter, std::uint64_t amount = 1) {
    counter.fetch_add(amount, std::memory_order_relaxed);
  }

  void setLastError(const std::string& text);
  [[nodiscard]] datastreaming::StreamStatistics snapshot(const std::string& streamId) const;

 private:
  mutable std::mutex _mutex;
  std::string _lastError;  // guarded by _mutex
};

}  // namespace kestrel::streams
