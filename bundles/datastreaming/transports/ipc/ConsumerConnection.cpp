#include "transports/ipc/ConsumerConnection.hpp"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "transports/ipc/AnswersTogether.hpp"
#include "transports/ipc/ConsumerLine.hpp"

namespace kestrel::streams {

namespace {

std::uint64_t nextNumber() {
  static std::atomic<std::uint64_t> last{0};
  return ++last;
}

/// Room for the descriptors of one packet.
union Control {
  std::array<char, CMSG_SPACE(mostDescriptors * sizeof(int))> bytes;
  cmsghdr aligned;
};

void attachDescriptors(msghdr& header, Control& control, const int* descriptors, std::size_t count) {
  if (count == 0) return;
  header.msg_control = &control;
  header.msg_controllen = CMSG_SPACE(count * sizeof(int));
  cmsghdr* const rights = CMSG_FIRSTHDR(&header);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = CMSG_LEN(count * sizeof(int));
  std::memcpy(CMSG_DATA(rights), descriptors, count * sizeof(int));
}

}  // namespace

ConsumerConnection::ConsumerConnection(std::unique_ptr<LocalSocket> socket, std::shared_ptr<IpcLoop> loop)
    : _number(nextNumber()),
      _socket(std::move(socket)),
      _loop(std::move(loop)),
      _page(AccountsPage::create()) {
  _unwritten.push_back(OutgoingRecord::hello(_page->descriptor()));
}

ConsumerConnection::~ConsumerConnection() {
  (void)costUnderWay();  // without what has been taken
  for (const auto& [number, record] : _underWay) record->leaveBlock();
  _loop->remove(_number, _socket->get());
}

void ConsumerConnection::attach(const std::shared_ptr<ConsumerLine>& line) {
  _line = line;
  _loop->add(_number, _socket->get(), line);
}

Written ConsumerConnection::append(const Message& record) {
  if (_lost) return {Written::Kind::lost};
  auto& added = _unwritten.emplace_back(std::static_pointer_cast<OutgoingRecord>(record));
  _buffered += static_cast<int>(added->bytes().size());
  _costUnwritten += added->cost();
  return {};
}

bool ConsumerConnection::flush() {
  constexpr int mostHeldBack = 32 << 10;
  if (_buffered < mostHeldBack && AnswersTogether::holdBack(_line)) {
    wakeLater();  // lest the handler of the next message takes its time
    return true;
  }
  while (!_unwritten.empty() && usable()) {
    const std::size_t records = nextPacket();
    if (!sendPacket(records)) break;
    noteSent(records);
  }
  return true;
}

/// How many records go together.
std::size_t ConsumerConnection::nextPacket() const {
  std::size_t records = 0, bytes = 0, descriptors = 0;
  for (const auto& record : _unwritten) {
    bytes += record->bytes().size();
    descriptors += record->bringsDescriptor() ? 1 : 0;
    constexpr std::size_t mostRecords = 512;
    if (records > 0 && (bytes > longestPacket || descriptors > mostDescriptors || records == mostRecords))
      break;
    ++records;
  }
  return records;
}

bool ConsumerConnection::sendPacket(std::size_t records) {
  std::array<iovec, 512> parts;
  std::array<int, mostDescriptors> descriptors;
  std::size_t count = 0;
  for (std::size_t i = 0; i < records; ++i) {
    const auto bytes = _unwritten[i]->bytes();
    parts[i] = {const_cast<std::uint8_t*>(bytes.data()), bytes.size()};
    if (_unwritten[i]->bringsDescriptor()) descriptors[count++] = _unwritten[i]->descriptor();
  }
  msghdr header{};
  header.msg_iov = parts.data();
  header.msg_iovlen = records;
  Control control;
  attachDescriptors(header, control, descriptors.data(), count);
  while (::sendmsg(_socket->get(), &header, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
    if (errno == EINTR) continue;
    findFailure(errno);
    return false;
  }
  return true;
}

void ConsumerConnection::findFailure(int error) {
  const bool full = error == EAGAIN;
  // Too many descriptors under way, or no memory: nobody says when that is over.
  const bool passing = error == ETOOMANYREFS || error == ENOBUFS || error == ENOMEM;
  if (full || passing) {
    _full = true;
    full ? _loop->awaitWritable(_number, _socket->get()) : _loop->startTicking();
    return;
  }
  _lost = true;
  _loop->wake(_number);
}

void ConsumerConnection::noteSent(std::size_t records) {
  const callbacks::MutexLock lock(_mutex);
  for (std::size_t i = 0; i < records; ++i) {
    auto& record = _unwritten.front();
    _buffered -= static_cast<int>(record->bytes().size());
    if (record->isMessage() || !record->bringsDescriptor()) _costUnwritten -= record->cost();
    if (record->isMessage()) ++_sent;
    if (!record->isMessage() && record->bringsDescriptor()) _page->closeDescriptor();  // the hello
    if (record->isMessage() && record->bringsDescriptor()) {
      if (_underWay.empty()) _loop->startTicking();
      _costUnderWay += record->cost();
      _underWay.push_back({_sent, std::move(record)});
    }
    _unwritten.pop_front();
  }
}

void ConsumerConnection::wake() {
  if (!_woken.exchange(true)) _loop->wake(_number);
}

void ConsumerConnection::writable() {
  _woken = false;
  _full = false;
}

std::uint64_t ConsumerConnection::costUnderWay() {
  const std::uint64_t taken = _page->accounts().taken.load(std::memory_order_acquire);
  const callbacks::MutexLock lock(_mutex);
  while (!_underWay.empty() && _underWay.front().number <= taken) {
    _costUnderWay -= _underWay.front().record->cost();
    _underWay.pop_front();
  }
  return _costUnderWay + _costUnwritten;
}

std::uint64_t ConsumerConnection::unhandled() {
  const std::uint64_t handled = _page->accounts().handled.load(std::memory_order_acquire);
  const callbacks::MutexLock lock(_mutex);
  return _sent - std::min(handled, _sent);
}

std::vector<std::shared_ptr<OutgoingRecord>> ConsumerConnection::takeUnwritten() {
  std::vector<std::shared_ptr<OutgoingRecord>> records;
  for (auto& record : std::exchange(_unwritten, {})) {
    if (record->isMessage() || !record->bringsDescriptor()) records.push_back(std::move(record));
  }
  return records;
}

void ConsumerConnection::awaitRoom(int milliseconds) {
  pollfd polled{_socket->get(), POLLOUT, 0};
  (void)::poll(&polled, 1, milliseconds);
  _full = false;
}

}  // namespace kestrel::streams
