#include "transports/nats/connection/SocketLoop.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <utility>

#include "delivery/ThreadName.hpp"
#include "transports/nats/connection/TlsGate.hpp"
#include "transports/nats/connection/TlsRecord.hpp"

namespace kestrel::streams {

namespace {

constexpr int mostReads = 1000;  // of what has come in before the end of a connection
constexpr std::chrono::milliseconds pauseAtTheEnd{10};

void clear(const FileDescriptor& signalled) {
  std::uint64_t count = 0;
  [[maybe_unused]] const auto taken = ::read(signalled.get(), &count, sizeof count);
}

}  // namespace

thread_local bool SocketLoop::FlushesItself::flushing = false;

SocketLoop::SocketLoop(std::function<void()> writable, std::function<void()> lost, bool secure)
    : _writable(std::move(writable)),
      _lost(std::move(lost)),
      _secure(secure),
      _event(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), "eventfd"),
      _timer(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC), "timerfd_create"),
      _thread([this] { run(); }) {}

SocketLoop::~SocketLoop() {
  stop();
}

void SocketLoop::stop() {
  _stopped = true;
  wake();
  if (_thread.joinable()) _thread.join();
}

void SocketLoop::hangUp() {
  {
    const std::lock_guard lock(_named);
    if (attached()) ::shutdown(_socket, SHUT_RDWR);
  }
  const auto pass = enter();
  for (int reads = 0; pass && attached() && reads < mostReads; ++reads) {
    natsConnection_ProcessReadEvent(_connection);
  }
}

std::optional<callbacks::ExitGate::Pass> SocketLoop::enter() const {
  if (!_secure) return callbacks::ExitGate::Pass(nullptr);
  auto pass = useTls();
  if (!pass) return std::nullopt;
  return pass;
}

void SocketLoop::install(natsOptions* options) {
  require(natsOptions_SetEventLoop(options, this, &attach, &setRead, &setWrite, &detach),
          "installing the event loop");
}

void SocketLoop::wake() {
  if (_woken.exchange(true)) return;
  const std::uint64_t one = 1;
  // Only a counter that is full refuses it, and then the loop wakes anyway.
  [[maybe_unused]] const auto written = ::write(_event.get(), &one, sizeof one);
}

void SocketLoop::settle() {
  { const std::lock_guard lock(_using); }
  wake();  // a flush may have found the lock taken
}

void SocketLoop::wakeLater() {
  if (_timed.exchange(true)) return;
  itimerspec once{};
  once.it_value.tv_nsec = std::chrono::nanoseconds(heldBack).count();
  ::timerfd_settime(_timer.get(), 0, &once, nullptr);
}

// The client calls the four below under its own lock, so they must take none of ours that is held while the
// client is called.

natsStatus SocketLoop::attach(void** userData, void* loop, natsConnection* connection, natsSock socket) {
  auto* const self = static_cast<SocketLoop*>(loop);
  if (self->_connection != nullptr) return NATS_ILLEGAL_STATE;
  *userData = self;
  self->_connection = connection;
  self->_socket = socket;
  self->_wantsRead = true;
  self->wake();
  return NATS_OK;
}

natsStatus SocketLoop::setRead(void* userData, bool wanted) {
  auto* const self = static_cast<SocketLoop*>(userData);
  if (!wanted) self->forgetSocket();
  if (self->_wantsRead.exchange(wanted) != wanted) self->wake();
  return NATS_OK;
}

natsStatus SocketLoop::setWrite(void* userData, bool wanted) {
  auto* const self = static_cast<SocketLoop*>(userData);
  if (wanted && FlushesItself::flushing) return NATS_OK;
  if (!self->_wantsWrite.exchange(wanted) && wanted) self->wake();
  return NATS_OK;
}

natsStatus SocketLoop::detach(void* userData) {
  auto* const self = static_cast<SocketLoop*>(userData);
  self->forgetSocket();
  self->_wantsRead = false;
  self->_wantsWrite = false;
  self->wake();
  return NATS_OK;
}

/// It is about to be closed, and its number may come back at once.
void SocketLoop::forgetSocket() {
  {
    const std::lock_guard lock(_named);
    _socket = -1;
  }
  _lost();
}

bool SocketLoop::flush() {
  natsConnection* const connection = _connection;
  if (natsConnection_Buffered(connection) <= 0) {
    _wantsWrite = false;  // should the client want it again just now, it wakes the loop as well
    return true;
  }
  if (write(connection)) return true;
  if (attached()) _wantsWrite = true;
  return false;
}

bool SocketLoop::write(natsConnection* connection) {
  const std::unique_lock lock(_using, std::try_to_lock);
  if (!lock || !attached()) return false;
  const auto pass = enter();
  if (!pass) return false;
  const FlushesItself mark;
  natsConnection_ProcessWriteEvent(connection);
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
  const auto events = static_cast<short>((read ? POLLIN | POLLRDHUP : 0) | (write ? POLLOUT : 0));
  std::array<pollfd, 3> polled{pollfd{_event.get(), POLLIN, 0}, pollfd{_timer.get(), POLLIN, 0},
                               pollfd{socket, events, 0}};
  auto& [woken, timed, ready] = polled;
  if (::poll(polled.data(), polled.size(), -1) < 0 || _stopped) return;
  if (woken.revents != 0) {
    clear(_event);
    _woken = false;  // before what it was woken for is looked for
  }
  if (timed.revents != 0) {
    clear(_timer);
    _timed = false;  // before what is held back is looked for: what comes later starts it again
  }
  if (!takeEvents(socket, ready.revents)) return;
  const bool writable = (ready.revents & POLLOUT) != 0;
  if (writable) _wantsWrite = false;  // whoever leaves something asks again
  if (woken.revents != 0 || timed.revents != 0 || writable) _writable();
}

/// Reads what has come, or the end; returns false if the socket is of no use any more.
bool SocketLoop::takeEvents(int socket, short events) {
  if ((events & POLLNVAL) != 0) {  // closed under us; the client is about to say so
    int expected = socket;
    _socket.compare_exchange_strong(expected, -1);
    return false;
  }
  const bool ended = (events & (POLLHUP | POLLRDHUP | POLLERR)) != 0;
  const bool come = (events & POLLIN) != 0 && (!_secure || tlsRecordComplete(socket));
  if (!ended && !come) return true;
  const std::lock_guard lock(_using);
  if (const auto pass = enter()) {
    natsConnection_ProcessReadEvent(_connection);
    return true;
  }
  std::this_thread::sleep_for(pauseAtTheEnd);
  return false;
}

}  // namespace kestrel::streams
