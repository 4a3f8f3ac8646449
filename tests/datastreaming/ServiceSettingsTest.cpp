#include "transports/shared/ServiceSettings.hpp"

#include <gmock/gmock.h>

#include <kestrel/datastreaming/Keys.hpp>
#include <stdexcept>

namespace kestrel::streams {
namespace {

using datastreaming::ConfigurationMap;
using datastreaming::DataSteamingConfig;
using testing::HasSubstr;

struct BadSetting {
  std::string key;
  std::any value;
  std::string expected;
};

class BadSettings : public testing::TestWithParam<BadSetting> {};

TEST_P(BadSettings, AreRefusedWithTheKeyAndChangeNothing) {
  ServiceSettings settings;
  const ConfigurationMap bad{{DataSteamingConfig::WS_ENV, std::string("new")},
                             {GetParam().key, GetParam().value}};
  try {
    settings.update(bad);
    FAIL() << "accepted";
  } catch (const std::invalid_argument& error) {
    EXPECT_THAT(error.what(), HasSubstr(GetParam().key));
    EXPECT_THAT(error.what(), HasSubstr(GetParam().expected));
  }
  EXPECT_EQ(settings.text(DataSteamingConfig::WS_ENV, "old"), "old");
}

INSTANTIATE_TEST_SUITE_P(
    Each, BadSettings,
    testing::Values(BadSetting{DataSteamingConfig::QXA_TOKEN, "a C string", "std::string"},
                    BadSetting{DataSteamingConfig::WS_PING_INTERVAL_S, std::string("-1"), "-1"},
                    BadSetting{DataSteamingConfig::WS_MAX_RECONN_ATTEMPTS, std::string("3x"), "3x"},
                    BadSetting{DataSteamingConfig::PRODUCER_ACK, std::string("MAYBE"), "\"NO\" or \"YES\""}));

TEST(ProducerSettings, AcknowledgementComesFromTheProducerElseFromTheService) {
  ServiceSettings service;
  EXPECT_FALSE(readProducerSettings({}, service).acknowledge);
  service.update({{DataSteamingConfig::PRODUCER_ACK, std::string("YES")}});
  EXPECT_TRUE(readProducerSettings({}, service).acknowledge);
  EXPECT_FALSE(
      readProducerSettings({{DataSteamingConfig::PRODUCER_ACK, std::string("NO")}}, service).acknowledge);
  EXPECT_THROW((void)readProducerSettings({{DataSteamingConfig::PRODUCER_ACK, std::string("yes")}}, service),
               std::invalid_argument);
}

}  // namespace
}  // namespace kestrel::streams
