#pragma once

#include <chrono>
#include <cstdint>
#include <kestrel/datastreaming/Statistics.hpp>
#include <string>

#include "kestrel/callbacks/ThreadSafety.hpp"

namespace kestrel::streams {

/// How a connection stands, for the statistics of the streams over it. Safe from any thread.
class ConnectionStanding {
 public:
  /// A session has begun: the first one, or the next.
  void connected();
  /// The session was lost, or no new one could be made.
  void away(const std::string& why);
  /// No session will follow.
  void closed(const std::string& why);

  /// How many sessions have begun.
  [[nodiscard]] std::uint64_t sessions() const;
  /// Why the newest session ended, or could not be made.
  [[nodiscard]] std::string lastFailure() const;
  /// Fills in how the connection stands.
  void describe(datastreaming::StreamStatistics& statistics) const;

 private:
  void enter(datastreaming::ConnectionState state) KESTREL_REQUIRES(_mutex);

  mutable callbacks::Mutex _mutex;
  datastreaming::ConnectionState _state KESTREL_GUARDED_BY(_mutex) =
      datastreaming::ConnectionState::connected;
  std::chrono::system_clock::time_point _since KESTREL_GUARDED_BY(_mutex) = std::chrono::system_clock::now();
  std::uint64_t _sessions KESTREL_GUARDED_BY(_mutex) = 0;
  std::string _lastFailure KESTREL_GUARDED_BY(_mutex);
};

}  // namespace kestrel::streams
