#pragma once

#include <future>

#include "kestrel/datastreaming/Types.hpp"

namespace kestrel::datastreaming {

/// Receives every message of one stream, one at a time and in order, on one delivery thread at a time.
class Consumer {
 public:
  /// After the destructor has returned no callback runs and none will, unless it was called from that very
  /// callback, whose remaining run is then the last.
  virtual ~Consumer() = default;

  /// Replaces the error callback; call it before start().
  virtual void setErrorCallback(ErrorCallback callback) = 0;

  /// Sets what is called for each message; call it before start(). If it throws, that message is lost and
  /// reported, and the next one is delivered. A message, or a payload, that it has not taken is not
  /// acknowledged: where messages are stored, the next consumer gets it. The pieces of one payload arrive
  /// without a gap and without pieces of other payloads between them. A payload that cannot be completed ends
  /// with an empty last piece.
  virtual void setDataCallback(DataCallback callback) = 0;

  /// Begins delivery. The future completes when every message sent from now on will be delivered, or holds
  /// the failure; it never depends on a delivery thread.
  [[nodiscard]] virtual std::shared_future<void> start() = 0;
};

}  // namespace kestrel::datastreaming
