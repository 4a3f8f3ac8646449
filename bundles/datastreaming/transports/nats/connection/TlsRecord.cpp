#include "transports/nats/connection/TlsRecord.hpp"

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdint>

namespace kestrel::streams {

namespace {

// RFC 8446, 5.1: a type, two bytes of version, two of length.
constexpr int headerSize = 5;

void setLowWater(int socket, int bytes) {
  (void)::setsockopt(socket, SOL_SOCKET, SO_RCVLOWAT, &bytes, sizeof bytes);
}

int lowWater(int socket) {
  int bytes = 0;
  socklen_t size = sizeof bytes;
  return ::getsockopt(socket, SOL_SOCKET, SO_RCVLOWAT, &bytes, &size) == 0 ? bytes : 0;
}

}  // namespace

bool tlsRecordComplete(int socket) {
  std::array<std::uint8_t, headerSize> header{};
  const auto seen = ::recv(socket, header.data(), header.size(), MSG_PEEK | MSG_DONTWAIT);
  if (seen < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return false;
  if (seen <= 0) return true;  // ended or broken, as the client shall find out
  const int needed = seen < headerSize ? headerSize : headerSize + (header[3] << 8 | header[4]);
  int there = 0;
  if (::ioctl(socket, FIONREAD, &there) < 0) return true;
  const bool complete = seen == headerSize && there >= needed;
  // Readable below the mark: the system cannot keep more, and the rest comes only once this is read.
  const bool full = !complete && lowWater(socket) == needed;
  setLowWater(socket, complete || full ? 1 : needed);
  return complete || full;
}

}  // namespace kestrel::streams
