#include <nats/nats.h>

#include <semaphore>

#include "../PlainNats.hpp"
#include "Peer.hpp"

namespace bench {

namespace {

constexpr std::size_t piece = 900'000;  // below the server's limit
constexpr const char* subject = "peers.plain";
constexpr const char* answers = "peers.plain.answers";

/// Gives back what has a reply subject, joined of its pieces by whoever asked.
std::shared_ptr<void> serve(const std::string& url) {
  auto far = std::make_shared<PlainNats>(url, true);
  far->subscribe(subject, [client = far.get()](natsMsg* message) {
    if (natsMsg_GetReply(message) == nullptr) return;
    client->publish(natsMsg_GetReply(message),
                    reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message)),
                    static_cast<std::size_t>(natsMsg_GetDataLength(message)));
  });
  return far;
}

class NatsPeer final : public Peer {
 public:
  explicit NatsPeer(const std::string& url) : _client(url, true) {
    _client.subscribe(answers, [this](natsMsg* message) {
      _received += static_cast<std::size_t>(natsMsg_GetDataLength(message));
      _joined.insert(_joined.end(), natsMsg_GetData(message),
                     natsMsg_GetData(message) + natsMsg_GetDataLength(message));
      if (_received < _bytes.size()) return;
      _received = 0;
      _joined.clear();
      _answered.release();
    });
  }

  void load(std::size_t bytes) override { _bytes.assign(bytes, 0); }
  void exchange() override {
    ask();
    _answered.acquire();
  }
  void send() override {
    forEachPiece([&](const std::uint8_t* data, std::size_t size) { _client.publish(subject, data, size); });
  }
  void settle() override {
    const auto bytes = std::exchange(_bytes, std::vector<std::uint8_t>(1));
    exchange();
    _bytes = bytes;
  }
  void exchangeMany(int count, int outstanding) override {
    for (int i = 0; i < count + outstanding - 1; ++i) {
      if (i < count) ask();
      if (i >= outstanding - 1) _answered.acquire();
    }
  }

 private:
  void ask() {
    forEachPiece([&](const std::uint8_t* data, std::size_t size) {
      _client.publishRequest(subject, answers, {data, data + size});
    });
  }
  void forEachPiece(const std::function<void(const std::uint8_t*, std::size_t)>& action) const {
    for (std::size_t at = 0; at < _bytes.size(); at += piece)
      action(_bytes.data() + at, std::min(piece, _bytes.size() - at));
  }

  PlainNats _client;
  std::vector<std::uint8_t> _bytes;
  std::vector<char> _joined;
  std::size_t _received = 0;  // of the answer that comes; the client's thread's
  std::counting_semaphore<> _answered{0};
};

}  // namespace

std::vector<PeerKind> natsKinds(const std::string& natsUrl) {
  return {{"NATS, plain client", natsUrl,
           [](const std::string& url) { return std::make_unique<NatsPeer>(url); }, serve}};
}

}  // namespace bench
