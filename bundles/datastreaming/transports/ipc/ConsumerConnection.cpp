#include "transports/ipc/ConsumerConnection.hpp"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "delivery/Log.hpp"
#include "transports/ipc/AnswersTogether.hpp"
#include "transports/ipc/ConsumerLine.hpp"
#include "transports/ipc/CrossingBlocks.hpp"

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
  _unwritten.push_back({OutgoingRecord::hello(), {nullptr, 0, _page->descriptor()}});
}

ConsumerConnection::~ConsumerConnection() {
  (void)costUnderWay();                                                        // without what has been taken
  for (const auto& left : _underWay) memory::keepFromReuse(left.block.owner);  // it may still be read
  _loop->remove(_number, _socket->get());
}

void ConsumerConnection::attach(const std::shared_ptr<ConsumerLine>& line) {
  _line = line;
  _loop->add(_number, _socket->get(), line);
}

Written ConsumerConnection::append(const Message& record) {
  if (_lost) return {Written::Kind::lost};
  _unwritten.push_back({std::static_pointer_cast<OutgoingRecord>(record)});
  const auto& added = _unwritten.back().record;
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
    if (records == 0) awaitBlocks();
    if (records == 0 || !sendPacket(records)) break;
    noteSent(records);
  }
  return true;
}

/// How many records go together; none if the first one needs a block that is not to be had now.
std::size_t ConsumerConnection::nextPacket() {
  std::size_t records = 0, bytes = 0, descriptors = 0;
  for (auto& next : _unwritten) {
    bytes += next.record->bytes().size();
    descriptors += next.record->goesInBlock() || next.record->isHello() ? 1 : 0;
    constexpr std::size_t mostRecords = 512;
    if (records > 0 && (bytes > longestPacket || descriptors > mostDescriptors || records == mostRecords))
      break;
    if (next.record->goesInBlock() && !findBlock(next)) break;
    ++records;
  }
  return records;
}

bool ConsumerConnection::findBlock(Unwritten& message) {
  if (message.block.owner) return true;
  std::size_t copies = _copiesUnwritten;
  if (message.record->needsCopy()) {
    const callbacks::MutexLock lock(_mutex);
    reapTaken();
    copies += _copiesUnderWay;
  }
  message.block = message.record->block(copies);
  if (!message.block.owner) return false;
  _copiesUnwritten += message.record->needsCopy() ? 1 : 0;
  return true;
}

/// Consumers have not taken yet what went before: this one, or those of others. Nobody says when they have.
void ConsumerConnection::awaitBlocks() {
  constexpr int soon = 50;  // times after 200 µs, then ten times a second
  _full = true;
  const int waits = ++_waitsForBlocks;
  if (waits <= soon) return _loop->wakeLater(_number);
  if (waits == soon + 1) {
    logError("a large message waits for memory that another process can map: consumers have not taken " +
             std::to_string(mostCrossing) + " blocks, or the system gives no further one");
  }
  _loop->startTicking();
}

bool ConsumerConnection::sendPacket(std::size_t records) {
  std::array<iovec, 512> parts;
  std::array<int, mostDescriptors> descriptors;
  std::size_t count = 0;
  for (std::size_t i = 0; i < records; ++i) {
    const auto bytes = _unwritten[i].record->bytes();
    parts[i] = {const_cast<std::uint8_t*>(bytes.data()), bytes.size()};
    if (_unwritten[i].block.descriptor >= 0) descriptors[count++] = _unwritten[i].block.descriptor;
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
    auto sent = std::move(_unwritten.front());
    _unwritten.pop_front();
    const OutgoingRecord& record = *sent.record;
    if (record.isHello()) {
      _page->closeDescriptor();
      continue;
    }
    _buffered -= static_cast<int>(record.bytes().size());
    _costUnwritten -= record.cost();
    if (record.isMessage()) ++_sent;
    if (record.goesInBlock()) noteUnderWay(std::move(sent));
  }
}

void ConsumerConnection::noteUnderWay(Unwritten message) {
  _waitsForBlocks = 0;
  if (_underWay.empty()) _loop->startTicking();
  const bool isCopy = message.record->needsCopy();
  // Pieces of one payload cost nothing where they are kept together; their copies are apart.
  const std::uint64_t cost =
      isCopy ? std::max<std::uint64_t>(message.record->cost(), message.block.size) : message.record->cost();
  if (isCopy) {
    --_copiesUnwritten;
    ++_copiesUnderWay;
  }
  _costUnderWay += cost;
  _underWay.push_back({_sent, cost, isCopy, std::move(message.block)});
}

void ConsumerConnection::wake() {
  if (!_woken.exchange(true)) _loop->wake(_number);
}

void ConsumerConnection::writable() {
  _woken = false;
  _full = false;
}

std::uint64_t ConsumerConnection::costUnderWay() {
  const callbacks::MutexLock lock(_mutex);
  reapTaken();
  return _costUnderWay + _costUnwritten;
}

void ConsumerConnection::reapTaken() {
  const std::uint64_t taken = _page->accounts().taken.load(std::memory_order_acquire);
  while (!_underWay.empty() && _underWay.front().number <= taken) {
    _costUnderWay -= _underWay.front().cost;
    _copiesUnderWay -= _underWay.front().isCopy ? 1 : 0;
    _underWay.pop_front();
  }
}

std::uint64_t ConsumerConnection::unhandled() {
  const std::uint64_t handled = _page->accounts().handled.load(std::memory_order_acquire);
  const callbacks::MutexLock lock(_mutex);
  return _sent - std::min(handled, _sent);
}

std::vector<std::shared_ptr<OutgoingRecord>> ConsumerConnection::takeUnwritten() {
  std::vector<std::shared_ptr<OutgoingRecord>> records;
  for (auto& unwritten : std::exchange(_unwritten, {})) {
    if (!unwritten.record->isHello()) records.push_back(std::move(unwritten.record));
  }
  return records;
}

void ConsumerConnection::awaitRoom(int milliseconds) {
  // No poll says when there are blocks again.
  pollfd polled{_waitsForBlocks > 0 ? -1 : _socket->get(), POLLOUT, 0};
  (void)::poll(&polled, 1, milliseconds);
  _full = false;
}

}  // namespace kestrel::streams
