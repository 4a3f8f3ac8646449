#include <zmq.h>

#include <stdexcept>
#include <thread>

#include "Peer.hpp"

namespace bench {

namespace {

void check(int result) {
  if (result < 0) throw std::runtime_error(std::string("ZeroMQ: ") + zmq_strerror(zmq_errno()));
}

/// Shared by both ends within a process, as it has to be.
void* context() {
  static void* const made = zmq_ctx_new();
  return made;
}

class Socket {
 public:
  Socket() : _handle(zmq_socket(context(), ZMQ_PAIR)) {
    zmq_setsockopt(_handle, ZMQ_LINGER, &none, sizeof none);
  }
  ~Socket() { zmq_close(_handle); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  [[nodiscard]] void* get() const { return _handle; }

 private:
  static constexpr int none = 0;
  void* _handle;
};

/// A message that wants an answer has two parts.
void serveOn(void* socket) {
  while (true) {
    zmq_msg_t message;
    zmq_msg_init(&message);
    if (zmq_msg_recv(&message, socket, 0) < 0) return;
    if (zmq_msg_more(&message) != 0) {
      zmq_msg_close(&message);
      zmq_msg_init(&message);
      check(zmq_msg_recv(&message, socket, 0));
      if (zmq_msg_send(&message, socket, 0) < 0) return;
    }
    zmq_msg_close(&message);
  }
}

std::shared_ptr<void> serve(const std::string& address) {
  auto* const socket = new Socket;  // its thread ends with the process
  check(zmq_bind(socket->get(), address.c_str()));
  std::thread([socket] { serveOn(socket->get()); }).detach();
  return std::make_shared<int>();
}

class ZeroMqPeer final : public Peer {
 public:
  ZeroMqPeer(const std::string& address, bool bringsFarSide) {
    static int made = 0;  // far sides within the process never go
    const std::string place = bringsFarSide ? address + std::to_string(++made) : address;
    if (bringsFarSide) _far = serve(place);
    check(zmq_connect(_socket.get(), place.c_str()));
  }

  void load(std::size_t bytes) override { _bytes.assign(bytes, 0); }
  void exchange() override {
    ask();
    answer();
  }
  void send() override { check(zmq_send(_socket.get(), _bytes.data(), _bytes.size(), 0)); }
  void settle() override {
    check(zmq_send(_socket.get(), "", 0, ZMQ_SNDMORE));
    check(zmq_send(_socket.get(), "", 1, 0));
    answer();
  }
  void exchangeMany(int count, int outstanding) override {
    for (int i = 0; i < count + outstanding - 1; ++i) {
      if (i < count) ask();
      if (i >= outstanding - 1) answer();
    }
  }

 private:
  void ask() {
    check(zmq_send(_socket.get(), "", 0, ZMQ_SNDMORE));
    send();
  }
  void answer() {
    zmq_msg_t message;
    zmq_msg_init(&message);
    check(zmq_msg_recv(&message, _socket.get(), 0));
    zmq_msg_close(&message);
  }

  std::shared_ptr<void> _far;
  Socket _socket;
  std::vector<std::uint8_t> _bytes;
};

}  // namespace

std::vector<PeerKind> zeroMqKinds(const std::string& folder) {
  const auto within = [](const std::string& address) { return std::make_unique<ZeroMqPeer>(address, true); };
  const auto beside = [](const std::string& address) { return std::make_unique<ZeroMqPeer>(address, false); };
  return {{"ZeroMQ, in process", "inproc://peers", within, {}},
          {"ZeroMQ, ipc", "ipc://" + folder + "/zeromq", beside, serve}};
}

}  // namespace bench
