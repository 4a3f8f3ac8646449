#pragma once

#include <atomic>
#include <list>
#include <mutex>
#include <string>
#include <thread>

#include "Loopback.hpp"
#include "Random.hpp"

namespace soak {

/// Stands between one process and the server, and cuts connections when it is told to, wherever in a message
/// they happen to be.
class CuttingProxy {
 public:
  explicit CuttingProxy(int serverPort) : _serverPort(serverPort), _thread([this] { serve(); }) {}
  ~CuttingProxy() {
    _listener.stop();
    _thread.join();
    cutAll();
    sweep(true);
  }
  CuttingProxy(const CuttingProxy&) = delete;
  CuttingProxy& operator=(const CuttingProxy&) = delete;

  [[nodiscard]] std::string url(const std::string& query) const {
    return "nats://" + _listener.address() + "?" + query;
  }

  /// Returns whether there was one.
  bool cutOne(Random& random) {
    const std::lock_guard lock(_mutex);
    if (_links.empty()) return false;
    auto link = _links.begin();
    std::advance(link, random.between(0, static_cast<std::int64_t>(_links.size()) - 1));
    link->cut();
    return true;
  }
  void cutAll() {
    const std::lock_guard lock(_mutex);
    for (auto& link : _links) link.cut();
  }

 private:
  struct Link {
    Link(int theClient, int theServer) : client(theClient), server(theServer) {
      up = std::jthread([this] { pump(client, server); });
      down = std::jthread([this] { pump(server, client); });
    }
    ~Link() {
      up.join();
      down.join();
      ::close(client);
      ::close(server);
    }
    void cut() const {
      ::shutdown(client, SHUT_RDWR);
      ::shutdown(server, SHUT_RDWR);
    }
    void pump(int from, int to) {
      std::vector<char> buffer(64 << 10);
      for (;;) {
        const auto got = ::recv(from, buffer.data(), buffer.size(), 0);
        if (got <= 0 || !sendAll(to, buffer.data(), static_cast<std::size_t>(got))) break;
      }
      cut();
      ++ended;
    }
    static bool sendAll(int to, const char* data, std::size_t size) {
      while (size > 0) {
        const auto sent = ::send(to, data, size, MSG_NOSIGNAL);
        if (sent <= 0) return false;
        data += sent;
        size -= static_cast<std::size_t>(sent);
      }
      return true;
    }
    const int client;
    const int server;
    std::atomic<int> ended{0};
    std::jthread up, down;
  };

  void serve() {
    for (int client = 0; (client = _listener.accept()) >= 0;) {
      sweep(false);
      const int server = kestrel::streams::connectToLoopback(_serverPort);
      if (server < 0) {
        ::close(client);
        continue;
      }
      const std::lock_guard lock(_mutex);
      _links.emplace_back(client, server);
    }
  }

  void sweep(bool all) {
    std::list<Link> gone;  // joined without the lock
    const std::lock_guard lock(_mutex);
    for (auto link = _links.begin(); link != _links.end();) {
      const auto next = std::next(link);
      if (all || link->ended == 2) gone.splice(gone.end(), _links, link);
      link = next;
    }
  }

  const int _serverPort;
  kestrel::streams::LoopbackListener _listener;
  std::mutex _mutex;
  std::list<Link> _links;  // guarded by _mutex
  std::thread _thread;
};

}  // namespace soak
