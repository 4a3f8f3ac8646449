#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>

namespace kestrel::streams {

inline sockaddr_in loopbackAddress(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// A socket that is connected to that port, or -1; the caller closes it.
inline int connectToLoopback(int port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopbackAddress(port);
  if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return socket;
  ::close(socket);
  return -1;
}

/// Listens on a free port of the loopback interface.
class LoopbackListener {
 public:
  LoopbackListener() {
    const sockaddr_in address = loopbackAddress(0);
    ::bind(_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    ::listen(_socket, 8);
  }
  ~LoopbackListener() { ::close(_socket); }
  LoopbackListener(const LoopbackListener&) = delete;
  LoopbackListener& operator=(const LoopbackListener&) = delete;

  [[nodiscard]] std::string address() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ::getsockname(_socket, reinterpret_cast<sockaddr*>(&address), &size);
    return "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  }
  /// The next connection, or -1 once stop() was called.
  [[nodiscard]] int accept() const { return ::accept(_socket, nullptr, nullptr); }
  void stop() { ::shutdown(_socket, SHUT_RDWR); }

 private:
  const int _socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

}  // namespace kestrel::streams
