#pragma once

#include <memory>
#include <string>

#include "transports/ProducerBase.hpp"
#include "transports/nats/connection/EchoBook.hpp"
#include "transports/nats/connection/NatsConnection.hpp"
#include "transports/nats/live/LiveAnnouncer.hpp"

namespace kestrel::streams {

/// Publishes messages to whoever listens now.
class LiveProducer final : public ProducerBase {
 public:
  LiveProducer(std::shared_ptr<StreamContext> context, std::shared_ptr<NatsConnection> connection,
               std::string subject, const ProducerSettings& settings);
  ~LiveProducer() override;

 protected:
  Outcome transmit(const Outgoing& message) override;
  void abandonPayload() override;
  void open() override;

 private:
  class Follower;

  const std::shared_ptr<NatsConnection> _connection;
  const std::string _subject;
  const bool _acknowledge;
  // Guarded by the lock of ProducerBase.
  std::shared_ptr<EchoBook> _echoes;          // set by open() if acknowledgements are wanted
  std::shared_ptr<Follower> _follower;        // set by open()
  std::shared_ptr<LiveAnnouncer> _announcer;  // set by open()
};

}  // namespace kestrel::streams
