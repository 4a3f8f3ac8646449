#pragma once

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/Transport.hpp"
#include "transports/nats/connection/NatsConnection.hpp"

namespace kestrel::streams {

/// Streams through a NATS server; one connection serves all streams of the endpoint.
class NatsTransport final : public Transport {
 public:
  explicit NatsTransport(const ServiceSettings& settings) : _endpoint(readNatsEndpoint(settings)) {}

  /// Connects with the first stream, within seconds.
  std::shared_ptr<StreamLink> open(std::shared_ptr<StreamContext> context) override;

 private:
  std::shared_ptr<NatsConnection> connection();

  const NatsEndpoint _endpoint;
  callbacks::Mutex _mutex;
  std::shared_ptr<NatsConnection> _connection KESTREL_GUARDED_BY(_mutex);
};

}  // namespace kestrel::streams
