#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Constants.h>

#include <cstdlib>
#include <filesystem>

#include "MessengerTest.hpp"
#include "kestrel/agentdirectory/AgentDirectoryService.hpp"
#include "kestrel/framework/Framework.hpp"
#include "kestrel/host/Host.hpp"
#include "remote_connectivity/asyncio/util/AgentDirectoryServiceFactory.hpp"
#include "remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp"

namespace library_test {

using Texts = std::map<std::string, std::string>;

Texts textsOf(const ds::ConfigurationMap& configuration) {
  Texts result;
  for (const auto& [key, value] : configuration) result[key] = std::any_cast<std::string>(value);
  return result;
}

struct Directory : kestrel::agentdirectory::AgentDirectoryService {
  void configure(const ds::ConfigurationMap& newest) override { configuration = newest; }
  ds::ConfigurationMap configuration;
};

/// A host whose registry prefers a fake service to the one of the bundle.
class FactoryTest : public MessengerTest {
 protected:
  FactoryTest() {
    auto context = kestrel::framework::getFramework()->GetBundleContext();
    (void)context.RegisterService<ds::StreamsFactory>(
        streams, {{cppmicroservices::Constants::SERVICE_RANKING, cppmicroservices::Any(100)}});
    (void)context.RegisterService<kestrel::agentdirectory::AgentDirectoryService>(directory);
  }
  const kestrel::host::Host host;
  const std::shared_ptr<Directory> directory = std::make_shared<Directory>();
};

TEST_F(FactoryTest, ConfiguresFromItsArgumentsElseFromTheEnvironment) {
  const std::string url = "_datastreamingurl", apsUrl = "apsserviceurl", token = "qxaToken";
  const struct {
    const char *token, *endpoint, *environmentToken, *environmentEndpoint;
    Texts streams, directory;
  } cases[] = {{"", "", "", "", {}, {}},
               {"", "HTTP:https:h", "", "", {{url, "HTTP:https:h"}}, {{apsUrl, "HTTP:https:h"}}},
               {"", "x+http:h", "", "", {{url, "x+http:h"}, {"wsprotocol", "ws"}}, {{apsUrl, "x+http:h"}}},
               {"", "", "e", "f", {{token, "e"}, {url, "f"}}, {{token, "e"}, {apsUrl, "f"}}},
               {"t", "h", "e", "f", {{token, "t"}, {url, "h"}}, {{token, "t"}, {apsUrl, "h"}}}};
  for (const auto& given : cases) {
    streams->configuration = directory->configuration = {};
    setenv("QXA_TOKEN", given.environmentToken, 1);
    for (const char* variable : {"DS_ENDPOINT", "AD_ENDPOINT"})
      setenv(variable, given.environmentEndpoint, 1);
    const DataStreamMessengerFactory factory(given.token, given.endpoint);
    const AgentDirectoryServiceFactory directories(given.token, given.endpoint);
    EXPECT_EQ(textsOf(streams->configuration), given.streams);
    EXPECT_EQ(textsOf(directory->configuration), given.directory);
  }
  for (const char* variable : {"QXA_TOKEN", "DS_ENDPOINT", "AD_ENDPOINT"}) unsetenv(variable);
}

TEST_F(FactoryTest, BuffersOnFreshStreamsByDefaultAndPassesTheCallersOptionsOnUnread) {
  auto factory = std::make_unique<DataStreamMessengerFactory>("", "");
  IMessengerFactory& creator = *factory;
  const auto plain = creator.createSendReceiveMessenger("a", "b", {{"producerACK", std::string("YES")}});
  EXPECT_EQ(std::any_cast<std::string>(streams->producerConfigurations.back().at("producerACK")), "YES");
  EXPECT_FALSE(hasLogged("starting periodic work"));
  const auto buffered = factory->createSendReceiveMessenger();
  EXPECT_TRUE(hasLogged("starting periodic work with interval: 20"));
  EXPECT_NE(buffered->getSendStreamId(), buffered->getReceiveStreamId());
  EXPECT_EQ(factory->statistics().size(), 3U) << "what the service says";
  factory.reset();
  plain->send(DataStruct(number(1)));
  EXPECT_EQ(streams->sent().size(), 1U) << "messengers may outlive their factory";
}

TEST(Factory, FailsWhereThereAreNoBundles) {
  const auto directory = std::filesystem::path(testing::TempDir()) / "kestrel-no-bundles";
  std::filesystem::create_directories(directory);
  const kestrel::host::Host host({.installPath = directory});
  EXPECT_THAT([] { DataStreamMessengerFactory("", ""); },
              testing::ThrowsMessage<std::runtime_error>("No bundles for DataStreaming"));
}

}  // namespace library_test
