#include "transports/shared/StreamCounters.hpp"

namespace kestrel::streams {

void StreamCounters::setLastError(const std::string& text) {
  const std::lock_guard lock(_mutex);
  _lastError = text;
}

datastreaming::StreamStatistics StreamCounters::snapshot(const std::string& streamId) const {
  datastreaming::StreamStatistics result;
  result.streamId = streamId;
  result.messagesSent = messagesSent.load(std::memory_order_relaxed);
  result.bytesSent = bytesSent.load(std::memory_order_relaxed);
  result.messagesReceived = messagesReceived.load(std::memory_order_relaxed);
  result.bytesReceived = bytesReceived.load(std::memory_order_relaxed);
  result.payloadsReceived = payloadsReceived.load(std::memory_order_relaxed);
  result.refused = refused.load(std::memory_order_relaxed);
  result.lost = lost.load(std::memory_order_relaxed);
  result.copies = copies.load(std::memory_order_relaxed);
  result.reconnects = reconnects.load(std::memory_order_relaxed);
  const std::lock_guard lock(_mutex);
  result.lastError = _lastError;
  return result;
}

}  // namespace kestrel::streams
