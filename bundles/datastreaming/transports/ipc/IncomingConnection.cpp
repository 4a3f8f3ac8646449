#include "transports/ipc/IncomingConnection.hpp"

#include <unistd.h>

#include <cstring>
#include <utility>

namespace kestrel::streams {

void Packet::clear() {
  for (std::size_t i = 0; i < _count; ++i) ::close(_descriptors[i]);
  _count = _taken = _size = 0;
}

Packet::Received Packet::receive(int socket) {
  clear();
  iovec part{_bytes.get(), _room};
  union {
    std::array<char, CMSG_SPACE(mostDescriptors * sizeof(int))> bytes;
    cmsghdr aligned;
  } control;
  msghdr header{};
  header.msg_iov = &part;
  header.msg_iovlen = 1;
  header.msg_control = &control;
  header.msg_controllen = sizeof control;
  ssize_t size = -1;
  do {
    size = ::recvmsg(socket, &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  } while (size < 0 && errno == EINTR);
  if (size < 0) return errno == EAGAIN ? Received::nothing : Received::end;
  keepDescriptors(header);
  if (size == 0) return Received::end;
  if ((header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0) return Received::oversized;
  _size = static_cast<std::size_t>(size);
  return Received::packet;
}

void Packet::keepDescriptors(msghdr& header) {
  for (auto* item = CMSG_FIRSTHDR(&header); item != nullptr; item = CMSG_NXTHDR(&header, item)) {
    if (item->cmsg_level != SOL_SOCKET || item->cmsg_type != SCM_RIGHTS) continue;
    const std::size_t count = (item->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    std::memcpy(_descriptors.data() + _count, CMSG_DATA(item), count * sizeof(int));
    _count += count;
  }
}

bool IncomingConnection::greeted(int accounts) {
  if (_page || accounts < 0) return false;
  _page = AccountsPage::open(accounts);
  return _page != nullptr;
}

void IncomingConnection::took(const Stamp& stamp) {
  if (_producers.size() >= mostProducers && !_producers.contains(stamp.producer)) {
    _producers.clear();  // they are too many to be honest
    _held = 0;
  }
  Unfinished& unfinished = _producers[stamp.producer];
  if (unfinished.payload != stamp.payload || stamp.last) {
    _held -= std::exchange(unfinished.pieces, 0);
    unfinished.payload = stamp.payload;
  }
  if (stamp.chunked && !stamp.last) {
    ++unfinished.pieces;
    ++_held;
  }
  ++_taken;
  _page->accounts().taken.store(_taken, std::memory_order_release);
  _page->accounts().handled.store(_taken - _held, std::memory_order_release);
}

void IncomingConnection::gaveUp(std::uint64_t messages) {
  _taken += messages;
  if (!_page) return;
  _page->accounts().taken.store(_taken, std::memory_order_release);
  _page->accounts().handled.store(_taken, std::memory_order_release);
}

std::vector<std::uint64_t> IncomingConnection::producers() const {
  std::vector<std::uint64_t> ids;
  for (const auto& [id, unfinished] : _producers) ids.push_back(id);
  return ids;
}

}  // namespace kestrel::streams
