#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Constants.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>

#include "FakeStreams.hpp"
#include "LogCapture.hpp"
#include "Wire.hpp"
#include "kestrel/framework/Framework.hpp"
#include "kestrel/host/Host.hpp"
#include "remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp"

namespace library_test {
namespace {

using namespace remote_connectivity::asyncio::util;
using Texts = std::map<std::string, std::string>;

/// A host whose registry prefers a fake service to the one of the bundle.
class FactoryTest : public testing::Test {
 protected:
  FactoryTest() {
    auto context = kestrel::framework::getFramework()->GetBundleContext();
    (void)context.RegisterService<ds::StreamsFactory>(
        streams, {{cppmicroservices::Constants::SERVICE_RANKING, cppmicroservices::Any(100)}});
    setEnvironment(nullptr, nullptr);
  }
  ~FactoryTest() override { setEnvironment(nullptr, nullptr); }

  static void setEnvironment(const char* token, const char* endpoint) {
    unsetenv("QXA_TOKEN");
    unsetenv("DS_ENDPOINT");
    if (token != nullptr) setenv("QXA_TOKEN", token, 1);
    if (endpoint != nullptr) setenv("DS_ENDPOINT", endpoint, 1);
  }

  static Texts texts(const ds::ConfigurationMap& map) {
    Texts result;
    for (const auto& [key, value] : map) result[key] = std::any_cast<std::string>(value);
    return result;
  }

  const kestrel::host::Host host;
  std::shared_ptr<FakeStreams> streams = std::make_shared<FakeStreams>();
};

struct ConfigurationCase {
  const char* name;
  const char* token;
  const char* endpoint;
  const char* environmentToken;
  const char* environmentEndpoint;
  Texts expected;  // none: the service is not called
};

class Configuration : public FactoryTest, public testing::WithParamInterface<ConfigurationCase> {};

TEST_P(Configuration, IsMadeFromArgumentsThenFromTheEnvironment) {
  const auto& [name, token, endpoint, environmentToken, environmentEndpoint, expected] = GetParam();
  setEnvironment(environmentToken, environmentEndpoint);
  DataStreamMessengerFactory factory(token, endpoint);
  ASSERT_EQ(streams->configurations.size(), expected.empty() ? 0U : 1U);
  EXPECT_EQ(expected.empty() ? Texts() : texts(streams->configurations[0]), expected);
  factory.configure("later", "");
  EXPECT_EQ(texts(streams->configurations.back()).at("qxaToken"), "later");
}

const std::string url = "_datastreamingurl";
INSTANTIATE_TEST_SUITE_P(
    Cases, Configuration,
    testing::Values(
        ConfigurationCase{"nothing", "", "", nullptr, nullptr, {}},
        ConfigurationCase{"emptyVariables", "", "", "", "", {}},
        ConfigurationCase{"token", "t", "", nullptr, nullptr, {{"qxaToken", "t"}}},
        ConfigurationCase{
            "http", "", "http://h", nullptr, nullptr, {{url, "http://h"}, {"wsprotocol", "ws"}}},
        ConfigurationCase{"https", "", "https://h", nullptr, nullptr, {{url, "https://h"}}},
        ConfigurationCase{"ws", "", "ws://h", nullptr, nullptr, {{url, "ws://h"}}},
        ConfigurationCase{"upperCase", "", "HTTP://h", nullptr, nullptr, {{url, "HTTP://h"}}},
        ConfigurationCase{
            "httpWithin", "", "x+http:h", nullptr, nullptr, {{url, "x+http:h"}, {"wsprotocol", "ws"}}},
        ConfigurationCase{"environment",
                          "",
                          "",
                          "e",
                          "http://e",
                          {{"qxaToken", "e"}, {url, "http://e"}, {"wsprotocol", "ws"}}},
        ConfigurationCase{
            "argumentsWin", "t", "ws://h", "e", "http://e", {{"qxaToken", "t"}, {url, "ws://h"}}}),
    [](const auto& info) { return info.param.name; });

TEST_F(FactoryTest, NamesFreshStreamsForEachMessenger) {
  DataStreamMessengerFactory factory("", "");
  const auto first = factory.createSendReceiveMessenger();
  const auto second = factory.createSendReceiveMessenger();
  const std::set<std::string> names{first->getSendStreamId(), first->getReceiveStreamId(),
                                    second->getSendStreamId(), second->getReceiveStreamId()};
  EXPECT_EQ(names.size(), 4U);
  EXPECT_THAT(names, testing::Each(testing::SizeIs(36)));
}

class RecordingFactory : public DataStreamMessengerFactory {
 public:
  using DataStreamMessengerFactory::createSendReceiveMessenger;
  using DataStreamMessengerFactory::DataStreamMessengerFactory;
  std::unique_ptr<ISendReceiveMessenger> createSendReceiveMessenger(std::string first,
                                                                    std::string second) override {
    asked = first + " " + second;
    return nullptr;
  }
  std::string asked;
};

TEST_F(FactoryTest, UsesAnOverriddenCreationForFreshStreams) {
  RecordingFactory factory("", "");
  EXPECT_EQ(factory.createSendReceiveMessenger(), nullptr);
  EXPECT_EQ(factory.asked.size(), 73U);
  EXPECT_TRUE(streams->consumerEnds.empty());
}

TEST_F(FactoryTest, BuffersByDefaultAndPassesTheCallersOptionsOnUnread) {
  const LogCapture log;
  DataStreamMessengerFactory factory("", "");
  IMessengerFactory& creator = factory;
  const auto plain = creator.createSendReceiveMessenger("a", "b", {});
  EXPECT_EQ(log.count("starting periodic work"), 0U);
  const auto buffered = creator.createSendReceiveMessenger("a", "b");
  EXPECT_EQ(log.count("starting periodic work with interval: 20"), 1U);
  EXPECT_EQ(buffered->getSendStreamId(), "a");
  EXPECT_EQ(buffered->getReceiveStreamId(), "b");
  const auto optioned = creator.createSendReceiveMessenger("a", "b", {{"producerACK", std::string("YES")}});
  EXPECT_EQ(texts(streams->producerConfigurations.back()), (Texts{{"producerACK", "YES"}}));
  EXPECT_THROW((void)creator.createSendReceiveMessenger("a", "b", {{"masgSizeRate", 1}}), std::bad_any_cast);
}

TEST_F(FactoryTest, MayGoBeforeItsMessengers) {
  auto factory = std::make_unique<DataStreamMessengerFactory>("", "");
  const auto messenger = factory->createSendReceiveMessenger("a", "b", {});
  factory.reset();
  messenger->send(DataStruct(number(1)));
  EXPECT_EQ(streams->sent().size(), 1U);
}

TEST(Factory, FailsWhereThereAreNoBundles) {
  const auto directory = std::filesystem::path(testing::TempDir()) / "kestrel-no-bundles";
  std::filesystem::create_directories(directory);
  const kestrel::host::Host host({.installPath = directory});
  try {
    DataStreamMessengerFactory factory("", "");
    FAIL() << "made without bundles";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "No bundles for DataStreaming");
  }
}

TEST(Factory, IsMadeWithoutAFrameworkButItsMessengersAreNot) {
  DataStreamMessengerFactory factory("token", "");
  EXPECT_THROW((void)factory.createSendReceiveMessenger("a", "b", {}), std::runtime_error);
}

}  // namespace
}  // namespace library_test
