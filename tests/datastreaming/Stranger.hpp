#pragma once

#include <memory>
#include <string>

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
  void publish(const std::string& subject, const char* status) {
    natsMsg* raw = nullptr;
    require(natsMsg_Create(&raw, subject.c_str(), nullptr, nullptr, 0), "making a message");
    const NatsMessage message(raw);
    if (status != nullptr) require(natsMsgHeader_Set(raw, "Status", status), "setting a header");
    require(natsConnection_PublishMsg(_connection.get(), raw), "publishing");
    require(natsConnection_Flush(_connection.get()), "flushing");
  }
  void removeStore(const std::string& name) {
    jsCtx* raw = nullptr;
    require(natsConnection_JetStream(&raw, _connection.get(), nullptr), "preparing JetStream");
    const JetStreamContext context(raw);
    require(js_DeleteStream(raw, name.c_str(), nullptr, nullptr), "removing a store");
  }

 private:
  std::shared_ptr<natsConnection> _connection;
};

}  // namespace kestrel::streams
