#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <kestrel/datastreaming/Statistics.hpp>
#include <memory>
#include <mutex>
#include <string>

#include "transports/shared/ConnectionStanding.hpp"

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
  [[nodiscard]] std::uint64_t reconnectsLocked() const;

  const std::chrono::system_clock::time_point _opened = std::chrono::system_clock::now();
  mutable std::mutex _mutex;
  // Guarded by _mutex.
  std::string _lastError;
  std::shared_ptr<const ConnectionStanding> _connection;  // empty within one process
  std::uint64_t _sessionsBefore = 0;    // of _connection, when the stream was opened over it
  std::uint64_t _formerReconnects = 0;  // of the connections before
};

}  // namespace kestrel::streams
