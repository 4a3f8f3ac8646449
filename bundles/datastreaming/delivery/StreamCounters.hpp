#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <kestrel/datastreaming/Statistics.hpp>
#include <memory>
#include <string>

#include "delivery/ConnectionStanding.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"

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

  static void add(Counter& counter, std::uint64_t amount = 1) {
    counter.fetch_add(amount, std::memory_order_relaxed);
  }

  void setLastError(const std::string& text);
  /// The stream has been opened over that connection, perhaps once more; an empty one stands for none.
  void setConnection(std::shared_ptr<const ConnectionStanding> connection);
  [[nodiscard]] datastreaming::StreamStatistics snapshot(const std::string& streamId) const;

 private:
  [[nodiscard]] std::uint64_t reconnectsLocked() const KESTREL_REQUIRES(_mutex);

  const std::chrono::system_clock::time_point _opened = std::chrono::system_clock::now();
  mutable callbacks::Mutex _mutex;
  std::string _lastError KESTREL_GUARDED_BY(_mutex);
  // Empty within one process.
  std::shared_ptr<const ConnectionStanding> _connection KESTREL_GUARDED_BY(_mutex);
  // Of _connection when the stream was opened over it, and of the connections before.
  std::uint64_t _sessionsBefore KESTREL_GUARDED_BY(_mutex) = 0;
  std::uint64_t _formerReconnects KESTREL_GUARDED_BY(_mutex) = 0;
};

}  // namespace kestrel::streams
