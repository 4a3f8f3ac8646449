#pragma once

#include <memory>
#include <string>

#include "NatsServer.hpp"
#include "TransportSuite.hpp"

namespace kestrel::streams {

/// A service instance whose endpoint is that URL.
std::shared_ptr<datastreaming::StreamsFactory> natsFactory(const std::string& url,
                                                           const std::string& token = {});

/// Factories over one server.
class NatsFixture final : public TransportFixture {
 public:
  explicit NatsFixture(std::string delivery) : _query("delivery=" + std::move(delivery)) {
    if (unavailable().empty()) _server = std::make_unique<NatsServer>();
  }

  [[nodiscard]] std::string unavailable() const override { return NatsServer::unavailable(); }
  std::shared_ptr<datastreaming::StreamsFactory> makeFactory() override {
    return _server ? natsFactory(_server->url(_query)) : nullptr;
  }

 private:
  const std::string _query;
  std::unique_ptr<NatsServer> _server;
};

}  // namespace kestrel::streams
