#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "NatsServer.hpp"
#include "transports/nats/NatsHandles.hpp"

namespace kestrel::streams {

/// A program that uses the server by itself.
class Stranger {
 public:
  explicit Stranger(const NatsServer& server) {
    natsConnection* raw = nullptr;
    require(natsConnection_ConnectTo(&raw, server.url().c_str()), "connecting");
    _connection.reset(raw, natsConnection_Destroy);
  }
  using Headers = std::vector<std::pair<std::string, std::string>>;
  /// Publishes an empty message.
  void publish(const std::string& subject, const Headers& headers, const std::string& reply = {}) {
    natsMsg* raw = nullptr;
    require(natsMsg_Create(&raw, subject.c_str(), reply.empty() ? nullptr : reply.c_str(), nullptr, 0),
            "making a message");
    const NatsMessage message(raw);
    for (const auto& [name, value] : headers) {
      require(natsMsgHeader_Set(raw, name.c_str(), value.c_str()), "setting a header");
    }
    require(natsConnection_PublishMsg(_connection.get(), raw), "publishing");
    require(natsConnection_Flush(_connection.get()), "flushing");
  }
  /// How many messages a store holds.
  [[nodiscard]] std::uint64_t stored(const std::string& store) {
    const auto context = jetStream();
    jsStreamInfo* raw = nullptr;
    require(js_GetStreamInfo(&raw, context.get(), store.c_str(), nullptr, nullptr), "asking about a store");
    const std::uint64_t count = raw->State.Msgs;
    jsStreamInfo_Destroy(raw);
    return count;
  }
  [[nodiscard]] std::vector<std::string> stores() {
    jsStreamNamesList* raw = nullptr;
    std::vector<std::string> names;
    const natsStatus status = js_StreamNames(&raw, jetStream().get(), nullptr, nullptr);
    if (status == NATS_NOT_FOUND) return names;
    require(status, "asking for the stores");
    for (int i = 0; i < raw->Count; ++i) names.emplace_back(raw->List[i]);
    jsStreamNamesList_Destroy(raw);
    return names;
  }
  void makeStore(const std::string& name) {
    jsStreamConfig config;
    require(jsStreamConfig_Init(&config), "preparing a store");
    config.Name = name.c_str();
    require(js_AddStream(nullptr, jetStream().get(), &config, nullptr, nullptr), "making a store");
  }
  struct Reader {
    std::string inbox;  ///< where the server sends what the store holds; empty if it has no reader now
    std::int64_t created = 0;
  };
  [[nodiscard]] Reader readerOf(const std::string& store) {
    const auto context = jetStream();
    jsConsumerInfo* raw = nullptr;
    if (js_GetConsumerInfo(&raw, context.get(), store.c_str(), "kestrel", nullptr, nullptr) != NATS_OK)
      return {};
    // One that is just being removed has no subject any more.
    const char* const inbox = raw->Config->DeliverSubject;
    const Reader reader{inbox == nullptr ? "" : inbox, raw->Created};
    jsConsumerInfo_Destroy(raw);
    return reader;
  }
  void removeStore(const std::string& name) {
    require(js_DeleteStream(jetStream().get(), name.c_str(), nullptr, nullptr), "removing a store");
  }

 private:
  [[nodiscard]] JetStreamContext jetStream() {
    jsCtx* raw = nullptr;
    require(natsConnection_JetStream(&raw, _connection.get(), nullptr), "preparing JetStream");
    return JetStreamContext(raw);
  }

  std::shared_ptr<natsConnection> _connection;
};

}  // namespace kestrel::streams
