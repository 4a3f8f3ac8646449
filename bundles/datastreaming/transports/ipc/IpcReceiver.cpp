#include "transports/ipc/IpcReceiver.hpp"

#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace kestrel::streams {

IpcReceiver::IpcReceiver(std::shared_ptr<StreamContext> context, std::shared_ptr<IpcStream> stream,
                         const PayloadSequencer::Limits& limits)
    : Receiver(std::move(context), limits),
      _mostBytes(limits.payloadBytes),
      _stream(std::move(stream)),
      _epoll(::epoll_create1(EPOLL_CLOEXEC), "epoll_create1") {
  watch(_wake->descriptor());
}

IpcReceiver::~IpcReceiver() {
  leave(true);
}

void IpcReceiver::open() {
  {
    const callbacks::MutexLock lock(_mutex);
    _name = StreamFolder::newName(_stream->token());
  }
  takePlace();
  _pipeline->begin(Clock::now());
}

/// The first one, or again the one of that name, so that nobody who is connected takes it for another.
void IpcReceiver::takePlace() {
  const callbacks::MutexLock lock(_mutex);
  if (stopped()) return;
  _place.reset();
  _place = std::make_unique<StreamFolder::Place>(_stream->home().folder(), _name);
  _listener = _place->socket();
  watch(_listener);
  _stream->home().settle(_name, _wake);
}

void IpcReceiver::leave(bool /*insideRun*/) {
  {
    const callbacks::MutexLock lock(_mutex);
    _stream->home().leave(_name);
    if (_place) _place->withdraw();
  }
  _wake->wake();
}

void IpcReceiver::watch(int descriptor) {
  epoll_event wanted{};
  wanted.events = EPOLLIN;
  wanted.data.fd = descriptor;
  if (::epoll_ctl(_epoll.get(), EPOLL_CTL_ADD, descriptor, &wanted) == 0) return;
  throw std::system_error(errno, std::generic_category(), "epoll_ctl");
}

void IpcReceiver::run() {
  while (!stopped()) {
    try {
      turn(wait());
    } catch (const std::exception& error) {  // no memory, or the system has no room for a connection
      _errors->report(std::string("what came could not be taken: ") + error.what());
    }
  }
  try {
    leaveUnread();
  } catch (const std::exception& error) {
    _errors->report(std::string("what was still to be read could not be counted: ") + error.what());
  }
  _pipeline->abandon(_left);
}

int IpcReceiver::timeout() const {
  using std::chrono::milliseconds;
  constexpr milliseconds forEver{-1}, idle{5000};
  const auto deadline = _pipeline->deadline();
  const bool looksAgain = !_blocks.empty() || _strangers.pending();
  if (!deadline) return static_cast<int>((looksAgain ? idle : forEver).count());
  const auto left = std::chrono::ceil<milliseconds>(*deadline - Clock::now());
  return static_cast<int>(std::clamp(left, milliseconds(0), idle).count());
}

std::size_t IpcReceiver::wait() {
  constexpr std::chrono::milliseconds shortly{100};
  const int most = timeout();
  const auto ask = [&](int milliseconds) {
    return ::epoll_wait(_epoll.get(), _events.data(), static_cast<int>(_events.size()), milliseconds);
  };
  int ready = 0;
  const auto began = Clock::now();
  if (!_waits.look([&] { return (ready = ask(0)) > 0; })) ready = ask(most);
  const TimePoint before = std::exchange(_now, Clock::now());
  _waits.end(_now);
  // Nobody was silent while the callback ran, or while the whole process stood still.
  const auto handling = before == TimePoint() ? Clock::duration::zero() : began - before;
  const auto slept = most < 0 ? Clock::duration::zero() : _now - began - std::chrono::milliseconds(most);
  const auto deaf = std::max(handling, Clock::duration::zero()) + std::max(slept, Clock::duration::zero());
  if (deaf > shortly) _pipeline->excuse(deaf);
  return static_cast<std::size_t>(std::max(ready, 0));
}

void IpcReceiver::turn(std::size_t ready) {
  for (std::size_t i = 0; i < ready && !stopped(); ++i) {
    const int descriptor = _events[i].data.fd;
    if (const auto found = _connections.find(descriptor); found != _connections.end()) {
      read(*found->second);
    } else if (descriptor == _listener) {
      acceptAll();
    } else if (descriptor == _wake->descriptor()) {
      std::uint64_t count = 0;
      [[maybe_unused]] const auto taken = ::read(descriptor, &count, sizeof count);
    }
  }
  _together.reset();
  if (_wake->takeHomeless()) {
    try {
      acceptAll();  // who has found the old one
      takePlace();
    } catch (const std::exception& error) {  // a folder that is gone is about to be made again
      const bool removed = _stream->home().folder().identity().second == 0;
      if (!removed) _errors->report(std::string("new senders cannot find the consumer: ") + error.what());
    }
  }
  _blocks.expire(_now);
  (void)reportStrangers();
  if (const auto deadline = _pipeline->deadline(); deadline && *deadline <= _now) _pipeline->tick(_now);
}

void IpcReceiver::acceptAll() {
  constexpr std::size_t mostConnections = 1024;
  while (true) {
    const int accepted = ForkedSockets::open(
        [this] { return ::accept4(_listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC); });
    if (accepted < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS)) {
      _errors->report(std::string("a sender has to wait: ") + lastError());
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    if (accepted < 0) return;
    auto socket = std::make_unique<LocalSocket>(accepted, "accept4");
    const bool ours = isOfOurUser(accepted);
    if (!ours || _connections.size() >= mostConnections) {
      _fault = ours ? "there are " + std::to_string(mostConnections) + " connections"
                    : "it belongs to a process of another user";
      _strangers.add();
      continue;
    }
    watch(accepted);
    _connections.emplace(accepted, std::make_unique<IncomingConnection>(std::move(socket)));
  }
}

void IpcReceiver::read(IncomingConnection& connection) {
  constexpr int mostPackets = 16;  // before others have their turn
  for (int i = 0; i < mostPackets && !stopped(); ++i) {
    switch (_packet.receive(connection.socket())) {
      case Packet::Received::packet:
        if (!handlePacket(connection)) return;
        break;
      case Packet::Received::nothing:
        return;
      case Packet::Received::end:
        return end(connection);
      case Packet::Received::oversized:
        return dismiss(connection, "a packet was too long, or its descriptors could not be taken");
    }
  }
}

/// For more has come than the message that is handled now.
void IpcReceiver::holdBackAnswers() {
  if (!_together) _together.emplace();
}

bool IpcReceiver::handlePacket(IncomingConnection& connection) {
  auto rest = _packet.bytes();
  while (!rest.empty()) {
    const auto record = takeRecord(rest);
    if (!rest.empty()) holdBackAnswers();
    if (!record || !handle(connection, *record)) {
      dismiss(connection, "what came is no record of ours");
      return false;
    }
  }
  return true;
}

bool IpcReceiver::handle(IncomingConnection& connection, const IncomingRecord& record) {
  if (std::holds_alternative<HelloRecord>(record)) return connection.greeted(_packet.takeDescriptor());
  if (!connection.knowsAccounts()) return false;
  if (const auto* event = std::get_if<ProducerEvent>(&record)) {
    handle(connection, *event);
    return true;
  }
  return deliver(connection, std::get<MessageRecord>(record));
}

void IpcReceiver::handle(IncomingConnection& connection, const ProducerEvent& event) {
  if (event.kind == ProducerEvent::Kind::abandoned) return _pipeline->payloadAbandoned(event.producer);
  _pipeline->producerReached(event.producer, event.after, std::nullopt, _now);
  if (event.kind != ProducerEvent::Kind::gone) return;
  _pipeline->producerVanished(event.producer);
  connection.left(event.producer);
}

bool IpcReceiver::deliver(IncomingConnection& connection, const MessageRecord& record) {
  if (stopped()) {  // by the callback, for a message before it
    ++_left;
    connection.gaveUp(1);
    return true;
  }
  Frame frame;
  try {
    if (!fill(frame, record)) return false;
  } catch (const std::bad_alloc&) {
    _errors->report("no memory for a message of " + std::to_string(record.size) + " bytes, which is lost");
    connection.took(record.stamp);
    return true;
  }
  _pipeline->accept(std::move(frame));
  connection.took(record.stamp);
  return true;
}

/// The bytes stay where they are, which is until the pipeline returns: pieces are copied there as they are
/// joined. But who made a block may still write to it, so nobody else gets to see what lies there.
bool IpcReceiver::fill(Frame& frame, const MessageRecord& record) {
  if (record.inBlock && !fillFromBlock(frame, record)) return false;
  if (!record.inBlock) {
    frame.data = record.data.data();
    frame.size = record.data.size();
  }
  if (record.attributesInBlock == 0) {
    auto read = readAttributes(record.attributes);
    if (!read) return false;
    frame.attributes = std::move(*read);
  }
  frame.stamp = record.stamp;
  frame.arrival = frame.earliest = _now;
  return true;
}

bool IpcReceiver::fillFromBlock(Frame& frame, const MessageRecord& record) {
  if (record.size > _mostBytes) return false;
  const std::uint64_t before = record.attributesInBlock;
  const auto block = _blocks.map(_packet.takeDescriptor(), record.offset, before + record.size, _now);
  if (!block) return false;
  if (before > 0) {
    const std::vector<std::uint8_t> copy(block->data(), block->data() + before);
    auto read = readAttributes(copy);
    if (!read) return false;
    frame.attributes = std::move(*read);
  }
  frame.data = block->data() + before;
  frame.size = record.size;
  const bool joined = record.stamp.chunked && !(record.stamp.last && record.stamp.chunkIndex == 0);
  if (joined) return true;
  auto copy = std::make_shared<memory::Buffer>(frame.size);
  if (frame.size > 0) std::memcpy(copy->data(), frame.data, frame.size);
  copy->freeze();
  frame.data = copy->data();
  frame.owner = std::move(copy);
  return true;
}

void IpcReceiver::dismiss(const IncomingConnection& connection, std::string why) {
  _fault = std::move(why);
  _strangers.add();
  end(connection);
}

/// Whoever sent over it has gone, without a word if it was killed.
void IpcReceiver::end(const IncomingConnection& connection) {
  const auto ended = _connections.extract(connection.socket());
  for (const auto producer : ended.mapped()->producers()) _pipeline->producerVanished(producer);
}

bool IpcReceiver::reportStrangers() {
  if (const auto count = _strangers.due(_now); count > 0) {
    _errors->report(std::to_string(count) + " connections were refused or ended, the last one because " +
                    _fault);
  }
  return _strangers.pending();
}

void IpcReceiver::leaveUnread() {
  if (_listener >= 0) acceptAll();
  for (auto& [socket, connection] : _connections) leaveUnread(*connection);
  _connections.clear();
}

/// Counts what is on its way. The sender is told, so that it does not count it too.
void IpcReceiver::leaveUnread(IncomingConnection& connection) {
  ::shutdown(connection.socket(), SHUT_RD);  // what has come can still be read
  std::uint64_t unread = 0;
  while (_packet.receive(connection.socket()) == Packet::Received::packet) {
    auto rest = _packet.bytes();
    while (const auto record = takeRecord(rest)) {
      if (std::holds_alternative<HelloRecord>(*record)) (void)connection.greeted(_packet.takeDescriptor());
      if (std::holds_alternative<MessageRecord>(*record)) ++unread;
    }
  }
  _left += unread;
  connection.gaveUp(unread);
}

}  // namespace kestrel::streams
