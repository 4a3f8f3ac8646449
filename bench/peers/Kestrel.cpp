#include <deque>
#include <map>

#include "../Pair.hpp"
#include "Peer.hpp"

namespace bench {

namespace {

DataStreamMessengerFactory& factoryOf(const std::string& address) {
  static std::map<std::string, DataStreamMessengerFactory> factories;
  return factories.try_emplace(address, (host(), ""), address).first->second;
}

std::shared_ptr<void> serve(const std::string& address) {
  std::shared_ptr<ISendReceiveMessenger> far =
      factoryOf(address).createSendReceiveMessenger("peers-back", "peers-there", unlimited());
  far->setRequestHandler([](const DataStruct& message) { return message; });
  far->setReceiveHandler([](const DataStruct&) {});
  return far;
}

class KestrelPeer final : public Peer {
 public:
  KestrelPeer(const std::string& address, bool bringsFarSide) {
    if (bringsFarSide) _far = serve(address);
    _near = factoryOf(address).createSendReceiveMessenger("peers-there", "peers-back", unlimited());
  }

  void load(std::size_t bytes) override { _message = DataStruct(bytesArray(bytes)); }
  void exchange() override { (void)_near->request(_message); }
  void send() override { _near->send(_message); }
  void settle() override { (void)_near->request(_small); }
  void exchangeMany(int count, int outstanding) override {
    std::deque<std::pair<std::shared_future<DataStruct>, std::string>> pending;
    for (int i = 0; i < count + outstanding; ++i) {
      if (i < count) pending.push_back(_near->asyncRequest(_message));
      if (i < outstanding - 1 || pending.empty()) continue;
      (void)_near->getAsyncRequestResult(pending.front().first, pending.front().second);
      pending.pop_front();
    }
  }

 private:
  std::shared_ptr<void> _far;
  std::unique_ptr<ISendReceiveMessenger> _near;
  DataStruct _message;
  const DataStruct _small{bytesArray(1)};
};

}  // namespace

std::vector<PeerKind> kestrelKinds(const std::string& natsUrl, const std::string& folder) {
  const auto within = [](const std::string& address) { return std::make_unique<KestrelPeer>(address, true); };
  const auto beside = [](const std::string& address) {
    return std::make_unique<KestrelPeer>(address, false);
  };
  return {{"kestrel, memory", "", within, {}},
          {"kestrel, ipc", "ipc://" + folder + "/kestrel", beside, serve},
          {"kestrel, NATS", natsUrl, beside, serve}};
}

}  // namespace bench
