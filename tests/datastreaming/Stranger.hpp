#pragma once

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
    natsConnection* connection = nullptr;
    require(natsConnection_ConnectTo(&connection, server.url().c_str()), "connecting");
    _connection.reset(connection, natsConnection_Destroy);
  }
  using Headers = std::vector<std::pair<std::string, std::string>>;
  /// Publishes an empty message.
  void publish(const std::string& subject, const Headers& headers, const char* reply = nullptr) {
    natsMsg* raw = nullptr;
    require(natsMsg_Create(&raw, subject.c_str(), reply, nullptr, 0), "making a message");
    const NatsMessage message(raw);
    for (const auto& [name, value] : headers)
      require(natsMsgHeader_Set(raw, name.c_str(), value.c_str()), "setting a header");
    require(natsConnection_PublishMsg(_connection.get(), raw), "publishing");
    require(natsConnection_Flush(_connection.get()), "flushing");
  }
  /// The server's answer to an empty request of JetStream.
  [[nodiscard]] std::string ask(const std::string& request) {
    natsMsg* raw = nullptr;
    require(natsConnection_RequestString(&raw, _connection.get(), ("$JS.API." + request).c_str(), "", 10'000),
            "asking");
    const NatsMessage answer(raw);
    return natsMsg_GetData(raw);
  }
  /// Hears from now on what is published there.
  void listen(const std::string& subject) {
    natsSubscription* raw = nullptr;
    require(natsConnection_SubscribeSync(&raw, _connection.get(), subject.c_str()), "subscribing");
    _heard.reset(raw, natsSubscription_Destroy);
    require(natsConnection_Flush(_connection.get()), "flushing");
  }
  /// Whether anything that was published there has reached the server before; if asked for, anything that
  /// wants an answer.
  [[nodiscard]] bool hears(bool question = false) {
    require(natsConnection_Flush(_connection.get()), "flushing");
    for (natsMsg* raw = nullptr; natsSubscription_NextMsg(&raw, _heard.get(), 0) == NATS_OK;) {
      const NatsMessage message(raw);
      if (!question || natsMsg_GetReply(raw) != nullptr) return true;
    }
    return false;
  }

 private:
  std::shared_ptr<natsConnection> _connection;
  std::shared_ptr<natsSubscription> _heard;
};

}  // namespace kestrel::streams
