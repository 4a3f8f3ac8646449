#pragma once

#include <mutex>

#include "transports/nats/NatsConnection.hpp"
#include "transports/shared/Transport.hpp"

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
  std::mutex _mutex;
  std::shared_ptr<NatsConnection> _connection;  // guarded by _mutex
};

}  // namespace kestrel::streams
