#pragma once

#include <cstdint>
#include <future>
#include <string>

#include "kestrel/datastreaming/Types.hpp"

namespace kestrel::datastreaming {

/// Puts messages on one stream. send() may be called from several threads at once; what one thread sends
/// arrives in the order in which it sent it.
class Producer {
 public:
  /// After the destructor has returned no error callback runs, unless it was called from that very callback.
  virtual ~Producer() = default;

  /// Replaces the error callback; call it before start().
  virtual void setErrorCallback(ErrorCallback callback) = 0;

  /// Opens the producer. The future completes when it can send, or holds the failure; it never depends on a
  /// delivery thread, so waiting for it inside a data callback is safe.
  [[nodiscard]] virtual std::shared_future<void> start() = 0;

  /// Hands one message over; the bytes are copied before it returns. It never waits for room. A message that
  /// cannot be accepted fails its future, is counted, and is reported to the error callback once.
  ///
  /// A message whose attribute MessageAttributes::CompressionType is the text "chunk" is a piece of a
  /// payload; MessageAttributes::UnCompressedSize above 0 says that more pieces follow. If a piece is
  /// refused, so is the rest of its payload.
  virtual std::shared_future<std::string> send(const std::uint8_t* data, std::uint64_t size,
                                               const AttributeMap& attributes) = 0;
};

}  // namespace kestrel::datastreaming
