#pragma once

#include <gtest/gtest.h>

#include <kestrel/datastreaming/Keys.hpp>
#include <memory>
#include <string>

#include "../Eventually.hpp"
#include "NatsServer.hpp"
#include "TransportSuite.hpp"
#include "src/StreamsFactoryImpl.hpp"

namespace kestrel::streams {

/// A service instance whose endpoint is that URL.
inline std::shared_ptr<datastreaming::StreamsFactory> natsFactory(const std::string& url,
                                                                  const std::string& token = {}) {
  using Config = datastreaming::DataSteamingConfig;
  auto factory = std::make_shared<StreamsFactoryImpl>();
  factory->configure({{Config::DATASTREAMING_SERIVCE_URL, url}, {Config::QXA_TOKEN, token}});
  return factory;
}

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

/// The same for each way of delivery.
class NatsDeliveryTest : public NatsFaultsTest, public testing::WithParamInterface<std::string> {};

/// The ends of a stream, and what its consumer got and was told.
struct Ends {
  std::shared_ptr<datastreaming::StreamsFactory> factory;
  std::shared_ptr<datastreaming::Stream> stream = factory->getStream("faults", {});
  Inbox inbox{}, errors{};
  std::shared_ptr<datastreaming::Producer> producer{};
  std::shared_ptr<datastreaming::Consumer> consumer{};

  void startProducer(const std::string& acknowledge = "NO") {
    producer = factory->createProducer(stream, {{"producerACK", acknowledge}});
    producer->start().get();
  }
  void startConsumer(datastreaming::DataCallback callback) {
    consumer = factory->createConsumer(stream);
    consumer->setErrorCallback([this](const std::exception& error) { errors.add({error.what(), "", {}}); });
    consumer->setDataCallback(std::move(callback));
    consumer->start().get();
  }
  /// Both.
  void start(const std::string& acknowledge = "NO") {
    startConsumer(inbox.callback());
    startProducer(acknowledge);
  }
  [[nodiscard]] datastreaming::StreamStatistics statistics() const { return factory->statistics().at(0); }
  [[nodiscard]] testing::AssertionResult comesBack(std::uint64_t times = 1) const {
    return eventually("the connection to come back", [&] { return statistics().reconnects >= times; });
  }
};

inline std::string numbered(std::size_t number, std::size_t size) {
  std::string text = std::to_string(number) + ":";
  text.resize(size, static_cast<char>('a' + number % 26));
  return text;
}

}  // namespace kestrel::streams
