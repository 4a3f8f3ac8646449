#pragma once

#include <memory>
#include <string>

#include "transports/ProducerBase.hpp"
#include "transports/nats/durable/DurablePublisher.hpp"
#include "transports/nats/durable/DurableStore.hpp"
#include "transports/nats/wire/MessageHeaders.hpp"

namespace kestrel::streams {

/// Has the server store messages for the stream's consumer.
class DurableProducer final : public ProducerBase {
 public:
  DurableProducer(std::shared_ptr<StreamContext> context, std::shared_ptr<NatsConnection> connection,
                  std::shared_ptr<const DurableStore> store, const ProducerSettings& settings);
  ~DurableProducer() override;

 protected:
  Outcome transmit(const Outgoing& message) override;
  void abandonPayload() override;
  void open() override;

 private:
  void announce(ProducerEvent::Kind kind);

  const std::shared_ptr<NatsConnection> _connection;
  const std::shared_ptr<const DurableStore> _store;
  const bool _acknowledge;
  // Guarded by the lock of ProducerBase.
  std::shared_ptr<DurablePublisher> _publisher;  // set by open()
  std::uint64_t _number = 0;                     // of the message submitted last
  std::uint64_t _lastSequence = 0;               // of the message accepted last, 0: none
};

}  // namespace kestrel::streams
