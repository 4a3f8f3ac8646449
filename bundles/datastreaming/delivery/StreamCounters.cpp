#include "delivery/StreamCounters.hpp"

#include <utility>

namespace kestrel::streams {

void StreamCounters::setLastError(const std::string& text) {
  const callbacks::MutexLock lock(_mutex);
  _lastError = text;
}

void StreamCounters::setConnection(std::shared_ptr<const ConnectionStanding> connection) {
  const callbacks::MutexLock lock(_mutex);
  if (_connection == connection) return;
  _formerReconnects = reconnectsLocked();
  _connection = std::move(connection);
  _sessionsBefore = _connection ? _connection->sessions() : 0;
}

std::uint64_t StreamCounters::reconnectsLocked() const {
  return _formerReconnects + (_connection ? _connection->sessions() - _sessionsBefore : 0);
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
  result.connectionSince = _opened;
  const callbacks::MutexLock lock(_mutex);
  result.reconnects = reconnectsLocked();
  result.lastError = _lastError;
  if (_connection) _connection->describe(result);
  return result;
}

}  // namespace kestrel::streams
