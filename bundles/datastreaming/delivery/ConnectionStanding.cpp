#include "delivery/ConnectionStanding.hpp"

namespace kestrel::streams {

using datastreaming::ConnectionState;

void ConnectionStanding::connected() {
  const callbacks::MutexLock lock(_mutex);
  ++_sessions;
  _state = ConnectionState::connected;
  _since = std::chrono::system_clock::now();
}

void ConnectionStanding::away(const std::string& why) {
  const callbacks::MutexLock lock(_mutex);
  _lastFailure = why;
  enter(ConnectionState::away);
}

void ConnectionStanding::closed(const std::string& why) {
  const callbacks::MutexLock lock(_mutex);
  if (_state == ConnectionState::closed) return;
  _lastFailure = why;
  enter(ConnectionState::closed);
}

std::uint64_t ConnectionStanding::sessions() const {
  const callbacks::MutexLock lock(_mutex);
  return _sessions;
}

std::string ConnectionStanding::lastFailure() const {
  const callbacks::MutexLock lock(_mutex);
  return _lastFailure;
}

void ConnectionStanding::describe(datastreaming::StreamStatistics& statistics) const {
  const callbacks::MutexLock lock(_mutex);
  statistics.connection = _state;
  statistics.connectionSince = _since;
  if (_state != ConnectionState::connected) statistics.connectionFailure = _lastFailure;
}

/// A further failed attempt does not make the connection be away since then.
void ConnectionStanding::enter(ConnectionState state) {
  if (_state == state) return;
  _state = state;
  _since = std::chrono::system_clock::now();
}

}  // namespace kestrel::streams
