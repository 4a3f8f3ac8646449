#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "../Eventually.hpp"
#include "NatsCases.hpp"

namespace kestrel::streams {

/// A server of its own for each test.
class NatsFaultsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (const auto why = NatsServer::unavailable(); !why.empty()) GTEST_SKIP() << why;
    _server = std::make_unique<NatsServer>();
  }

  auto factory(const std::string& delivery, const std::string& more = {}) {
    return natsFactory(_server->url("wsFirstReconnBackoffMs=20&delivery=" + delivery + more));
  }

  std::unique_ptr<NatsServer> _server;
};

struct Ends {
  std::shared_ptr<datastreaming::StreamsFactory> factory;
  std::shared_ptr<datastreaming::Stream> stream = factory->getStream("faults", {});
  std::shared_ptr<datastreaming::Producer> producer{};
  std::shared_ptr<datastreaming::Consumer> consumer{};

  void startProducer(const std::string& acknowledge = "NO") {
    producer = factory->createProducer(stream, {{"producerACK", acknowledge}});
    producer->start().get();
  }
  void startConsumer(datastreaming::DataCallback callback, datastreaming::ErrorCallback onError = {}) {
    consumer = factory->createConsumer(stream);
    consumer->setErrorCallback(std::move(onError));
    consumer->setDataCallback(std::move(callback));
    consumer->start().get();
  }
  [[nodiscard]] datastreaming::StreamStatistics statistics() const { return factory->statistics().at(0); }
};

inline std::string numbered(std::size_t number, std::size_t size) {
  std::string text = std::to_string(number) + ":";
  text.resize(size, static_cast<char>('a' + number % 26));
  return text;
}

}  // namespace kestrel::streams
