#include "transports/nats/connection/NatsEndpoint.hpp"

#include <gmock/gmock.h>

#include <kestrel/datastreaming/Keys.hpp>

namespace kestrel::streams {
namespace {

using datastreaming::DataSteamingConfig;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

NatsEndpoint endpointOf(const std::string& url) {
  ServiceSettings settings;
  settings.update({{DataSteamingConfig::DATASTREAMING_SERIVCE_URL, url},
                   {DataSteamingConfig::WS_PING_INTERVAL_S, std::string("9")}});
  return readNatsEndpoint(settings);
}

TEST(NatsEndpointTest, QueryIsReadAndSettingsGoBeforeIt) {
  const auto endpoint = endpointOf(
      "tls://u:p%2C%40%3f%25@a:1,TLS://t@[::1],b:2/?delivery=durable&max_age_s=60&tls_ca=%2Ftmp%2Fca&"
      "wsPingIntervalS=7&wsMaxReconnAttempts=3");
  EXPECT_EQ(endpoint.servers.at(0).password, "p,@?%");
  EXPECT_EQ(endpoint.servers.at(1).user, "t");
  EXPECT_EQ(endpoint.shown, "tls://a:1,tls://[::1]:4222,tls://b:2");
  EXPECT_EQ(endpoint.delivery, NatsEndpoint::Delivery::durable);
  EXPECT_EQ(endpoint.maxAge, std::chrono::seconds(60));
  EXPECT_EQ(endpoint.certificateAuthority, "/tmp/ca");
  EXPECT_EQ(endpoint.pingInterval, std::chrono::seconds(9)) << "as it was set";
  EXPECT_EQ(endpoint.maxReconnects, 3);
}

TEST(NatsEndpointTest, WhatMakesNoSenseIsToldByKeyAndPlaceAndNothingOfItIsRepeated) {
  const std::pair<std::string, std::string> cases[] = {
      {"nats://u:SECRET@a:1?SECRET=live", "character 21: unknown key in the query"},
      {"nats://a:1?max_bytes=0", "'max_bytes' must be a whole number from 1"},
      {"nats://a:1?inbox_prefix=kestrel.SECRET", "not below kestrel"},
      {"nats://u:SECRET@a:1,tls://u:SECRET@b:2", "character 21: nats:// and tls:// servers"},
      {"u:SECRET@a:1", "nats://host:port"},
      {"nats://a:1?delivery=durable,nats://u:SECRET@b:2", "'@' in the query"},
      {"nats://u:x@SECRET@a:1", "percent-encoded"}};
  for (const auto& [url, told] : cases) {
    const auto open = [&url = url] { (void)endpointOf(url); };
    EXPECT_THAT(open,
                testing::ThrowsMessage<std::runtime_error>(AllOf(HasSubstr(told), Not(HasSubstr("SECRET")))));
  }
}

}  // namespace
}  // namespace kestrel::streams
