#pragma once

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Loopback.hpp"

namespace kestrel::streams {

/// Stands between a client and the server, and cuts the first connection after so many bytes to the client.
class CuttingProxy {
 public:
  CuttingProxy(int serverPort, std::size_t bytes) : _serverPort(serverPort), _left(bytes) {
    _thread = std::thread([this] { serve(); });
  }
  ~CuttingProxy() {
    _listener.stop();
    _thread.join();
  }
  [[nodiscard]] std::string url(const std::string& query) const {
    return "nats://" + _listener.address() + "?" + query;
  }

 private:
  void serve() {
    std::vector<int> sockets;
    std::vector<std::jthread> pumps;
    for (int client = 0; (client = _listener.accept()) >= 0;) {
      const int server = connectToLoopback(_serverPort);
      pumps.emplace_back([=, this] { pump(client, server, false); });
      pumps.emplace_back([=, this] { pump(server, client, true); });
      sockets.insert(sockets.end(), {client, server});
    }
    pumps.clear();  // joins them
    for (const int socket : sockets) ::close(socket);
  }

  void pump(int from, int to, bool counts) {
    std::vector<char> buffer(16 << 10);
    for (;;) {
      const auto most = counts && !_hasCut ? std::min(buffer.size(), _left) : buffer.size();
      const auto got = ::recv(from, buffer.data(), most, 0);
      if (got <= 0 || ::send(to, buffer.data(), static_cast<std::size_t>(got), MSG_NOSIGNAL) != got) break;
      if (!counts || _hasCut) continue;
      _left -= static_cast<std::size_t>(got);
      if (_left > 0) continue;
      _hasCut = true;
      break;
    }
    ::shutdown(from, SHUT_RDWR);
    ::shutdown(to, SHUT_RDWR);
  }

  const int _serverPort;
  LoopbackListener _listener;
  std::size_t _left;
  std::atomic<bool> _hasCut{false};
  std::thread _thread;
};

}  // namespace kestrel::streams
