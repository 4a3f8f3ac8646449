#include <gtest/gtest.h>

#include <kestrel/datastreaming/Keys.hpp>

#include "NatsCases.hpp"
#include "src/StreamsFactoryImpl.hpp"

namespace kestrel::streams {

using datastreaming::DataSteamingConfig;

std::shared_ptr<datastreaming::StreamsFactory> natsFactory(const std::string& url, const std::string& token) {
  auto factory = std::make_shared<StreamsFactoryImpl>();
  factory->configure({{DataSteamingConfig::DATASTREAMING_SERIVCE_URL, url}});
  if (!token.empty()) factory->configure({{DataSteamingConfig::QXA_TOKEN, token}});
  return factory;
}

namespace {

const TransportCase liveCase{.name = "NatsLive",
                             .make = [](std::uint64_t) { return std::make_unique<NatsFixture>("live"); },
                             .keepsBacklog = false,
                             .mostForOne = "1048576"};

const TransportCase durableCase{
    .name = "NatsDurable",
    .make = [](std::uint64_t) { return std::make_unique<NatsFixture>("durable"); },
    .broadcasts = false,
    .acknowledgesWithId = false,
    .mostForOne = "1048576"};

INSTANTIATE_TEST_SUITE_P(Nats, TransportSuite, testing::Values(liveCase, durableCase),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace kestrel::streams
