#pragma once

#include <any>
#include <chrono>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace remote_connectivity::asyncio::util {

/// What a messenger's options map says, with the defaults where it says nothing.
struct MessengerOptions {
  std::string producerAck = "NO";
  bool producerUsesBuffer = false;
  std::uint64_t messageSizeLimit = 1000000;  ///< bytes
  std::uint64_t messageRate = 50;            ///< messages per second

  /// Throws a std::bad_any_cast that names the key and both types for a value of the wrong type, and
  /// std::invalid_argument for a size limit of 0 and for a rate of 0 with the buffer. A key that is close to
  /// a known one is warned of in the log.
  [[nodiscard]] static MessengerOptions read(const std::unordered_map<std::string, std::any>& options);

  /// Time between two messages out of the buffer: the smallest whole number of milliseconds that keeps the
  /// rate.
  [[nodiscard]] std::chrono::milliseconds bufferPeriod() const;
};

}  // namespace remote_connectivity::asyncio::util
