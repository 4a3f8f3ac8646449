#include "transports/nats/SocketLoop.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

#include "transports/shared/ThreadName.hpp"

namespace kestrel::streams {

thread_local bool SocketLoop::FlushesItself::flushing = false;

SocketLoop::SocketLoop(std::function<void()> writable)
    : _writable(std::move(writable)), _event(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (_event < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  try {
    _thread = std::thread([this] { run(); });
  } catch (...) {
    ::close(_event);
    throw;
  }
}

SocketLoop::~SocketLoop() {
  stop();
  ::close(_event);
}

void SocketLoop::stop() {
  _stopped = true;
  wake();
  if (_thread.joinable()) _thread.join();
}

void SocketLoop::install(natsOptions* options) {
  require(natsOptions_SetEventLoop(options, this, &attach, &setRead, &setWrite, &detach),
          "installing the event loop");
}

void SocketLoop::wake() {
  const std::uint64_t one = 1;
  // Only a counter that is full refuses it, and then the loop wakes anyway.
  [[maybe_unused]] const auto written = ::write(_event, &one, sizeof one);
}

// The client calls the four below under its own lock, so they must take none of ours.

natsStatus SocketLoop::attach(void** userData, void* loop, natsConnection* connection, natsSock socket) {
  auto* const self = static_cast<SocketLoop*>(loop);
  *userData = self;
  self->_connection = connection;
  ++self->_attachments;
  self->_socket = socket;
  self->_wantsRead = true;
  self->_fresh = true;
  self->wake();
  return NATS_OK;
}

natsStatus SocketLoop::setRead(void* userData, bool wanted) {
  auto* const self = static_cast<SocketLoop*>(userData);
  if (self->_wantsRead.exchange(wanted) != wanted) self->wake();
  return NATS_OK;
}

natsStatus SocketLoop::setWrite(void* userData, bool wanted) {
  auto* const self = static_cast<SocketLoop*>(userData);
  const bool before = self->_wantsWrite.exchange(wanted);
  if (wanted && !before && !FlushesItself::flushing) self->wake();
  return NATS_OK;
}

natsStatus SocketLoop::detach(void* userData) {
  auto* const self = static_cast<SocketLoop*>(userData);
  self->_socket = -1;
  self->_wantsRead = false;
  self->_wantsWrite = false;
  self->wake();
  return NATS_OK;
}

bool SocketLoop::flush() {
  natsConnection* const connection = _connection;
  if (natsConnection_Buffered(connection) <= 0) return true;
  const std::unique_lock lock(_using, std::try_to_lock);
  // While the client reconnects, its buffer still holds what the old connection did not take.
  if (!lock || natsConnection_Status(connection) != NATS_CONN_STATUS_CONNECTED) return false;
  const FlushesItself mark;
  natsConnection_ProcessWriteEvent(connection);
  _fresh = false;
  return natsConnection_Buffered(connection) <= 0;
}

void SocketLoop::run() {
  nameThisThread("kestrel-nats");
  while (!_stopped) turn();
}

void SocketLoop::turn() {
  const bool read = _wantsRead;
  const bool write = _wantsWrite;
  const int socket = read || write ? _socket.load() : -1;
  const auto events = static_cast<short>((read ? POLLIN : 0) | (write ? POLLOUT : 0));
  std::array<pollfd, 2> polled{pollfd{_event, POLLIN, 0}, pollfd{socket, events, 0}};
  // A thread that published while the connection was lost may have made the client forget to ask for writing,
  // and it does not ask again before something has been written.
  const int timeout = _fresh ? 10 : -1;
  if (::poll(polled.data(), polled.size(), timeout) < 0 || _stopped) return;
  if (polled[0].revents != 0) {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto taken = ::read(_event, &count, sizeof count);
  }
  if ((polled[1].revents & POLLNVAL) != 0) {  // closed under us; the client is about to say so
    int expected = socket;
    _socket.compare_exchange_strong(expected, -1);
    return;
  }
  if ((polled[1].revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
    const std::lock_guard lock(_using);
    natsConnection_ProcessReadEvent(_connection);
  }
  if (_fresh || polled[0].revents != 0 || (polled[1].revents & POLLOUT) != 0) _writable();
}

}  // namespace kestrel::streams
