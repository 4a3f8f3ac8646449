#pragma once

// Part of the library's public interface: includes the standard library only.
#include <chrono>
#include <cstdint>
#include <string>

namespace kestrel::datastreaming {

/// How the connection behind a stream stands.
enum class ConnectionState {
  connected,
  away,    ///< it was lost, and is tried again
  closed,  ///< it will not come back; streams that are opened from now on get a new one
};

/// What one stream carried since this service instance first used it. Bytes count users' bytes only, not
/// headers.
struct StreamStatistics {
  std::string streamId;                ///< empty for anonymous streams
  std::uint64_t messagesSent = 0;      ///< accepted by send()
  std::uint64_t bytesSent = 0;         ///< of those messages
  std::uint64_t messagesReceived = 0;  ///< handed to data callbacks
  std::uint64_t bytesReceived = 0;     ///< of those messages
  std::uint64_t payloadsReceived = 0;  ///< whole payloads handed to data callbacks, chunked or not
  std::uint64_t refused = 0;           ///< messages that send() did not accept
  std::uint64_t lost = 0;              ///< messages that were accepted and not delivered, as far as known
  std::uint64_t copies = 0;            ///< messages that came again and were not delivered again
  std::uint64_t reconnects = 0;        ///< times the connection behind the stream came back
  std::string lastError;               ///< text of the newest failure, empty if none

  /// Of the connection that the stream was opened over last; within one process always connected.
  ConnectionState connection = ConnectionState::connected;
  std::chrono::system_clock::time_point connectionSince{};  ///< when that state began
  std::string connectionFailure;  ///< why it is away or closed; empty while it is connected

  /// 0 in a stream's own entry. Else the entry sums up so many streams that ended and have none of their own
  /// any more, and neither streamId nor the connection say anything.
  std::uint64_t endedStreams = 0;
};

}  // namespace kestrel::datastreaming
