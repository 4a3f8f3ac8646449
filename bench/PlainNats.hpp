#pragma once

#include <nats/nats.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace bench {

inline void check(natsStatus status) {
  if (status != NATS_OK) throw std::runtime_error(std::string("NATS client: ") + natsStatus_GetText(status));
}

/// One connection of the C client, as a program would use it that does our work by hand.
class PlainNats {
 public:
  using Handler = std::function<void(natsMsg*)>;

  PlainNats(const std::string& url, bool sendAsSoonAsPossible) {
    natsOptions* options = nullptr;
    check(natsOptions_Create(&options));
    natsOptions_SetURL(options, url.c_str());
    natsOptions_SetSendAsap(options, sendAsSoonAsPossible);
    const natsStatus status = natsConnection_Connect(&_connection, options);
    natsOptions_Destroy(options);
    check(status);
  }
  ~PlainNats() {
    for (const auto& subscription : _subscriptions) natsSubscription_Destroy(subscription->handle);
    natsConnection_Destroy(_connection);
  }
  PlainNats(const PlainNats&) = delete;
  PlainNats& operator=(const PlainNats&) = delete;

  void subscribe(const std::string& subject, Handler handler) {
    auto& subscription = *_subscriptions.emplace_back(std::make_unique<Subscription>());
    subscription.handler = std::move(handler);
    check(natsConnection_Subscribe(&subscription.handle, _connection, subject.c_str(), &deliver,
                                   &subscription));
    check(natsSubscription_SetPendingLimits(subscription.handle, -1, 256 << 20));
    check(natsConnection_Flush(_connection));
  }

  void publish(const std::string& subject, const std::uint8_t* data, std::size_t size) {
    check(natsConnection_Publish(_connection, subject.c_str(), data, static_cast<int>(size)));
  }

  void publishRequest(const std::string& subject, const std::string& reply,
                      const std::vector<std::uint8_t>& bytes) {
    check(natsConnection_PublishRequest(_connection, subject.c_str(), reply.c_str(), bytes.data(),
                                        static_cast<int>(bytes.size())));
  }

  /// Sends a request and gives its response.
  std::vector<std::uint8_t> request(const std::string& subject, const std::vector<std::uint8_t>& bytes) {
    natsMsg* answer = nullptr;
    check(natsConnection_Request(&answer, _connection, subject.c_str(), bytes.data(),
                                 static_cast<int>(bytes.size()), 20'000));
    std::vector<std::uint8_t> result(natsMsg_GetData(answer),
                                     natsMsg_GetData(answer) + natsMsg_GetDataLength(answer));
    natsMsg_Destroy(answer);
    return result;
  }

 private:
  struct Subscription {
    Handler handler;
    natsSubscription* handle = nullptr;
  };

  static void deliver(natsConnection*, natsSubscription*, natsMsg* message, void* closure) {
    static_cast<Subscription*>(closure)->handler(message);
    natsMsg_Destroy(message);
  }

  natsConnection* _connection = nullptr;
  std::vector<std::unique_ptr<Subscription>> _subscriptions;
};

}  // namespace bench
