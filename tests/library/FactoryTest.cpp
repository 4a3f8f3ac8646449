#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Constants.h>

#include <cstdlib>
#include <filesystem>
#include <set>

#include "MessengerTest.hpp"
#include "kestrel/framework/Framework.hpp"
#include "kestrel/host/Host.hpp"
#include "remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp"

namespace library_test {

using Texts = std::map<std::string, std::string>;

/// A host whose registry prefers a fake service to the one of the bundle.
class FactoryTest : public MessengerTest {
 protected:
  FactoryTest() {
    auto context = kestrel::framework::getFramework()->GetBundleContext();
    (void)context.RegisterService<ds::StreamsFactory>(
        streams, {{cppmicroservices::Constants::SERVICE_RANKING, cppmicroservices::Any(100)}});
  }
  Texts newestConfiguration() const {
    Texts result;
    if (streams->configurations.empty()) return result;
    for (const auto& [key, value] : streams->configurations.back()) {
      result[key] = std::any_cast<std::string>(value);
    }
    return result;
  }

  const kestrel::host::Host host;
};

struct ConfigurationCase {
  const char* token;
  const char* endpoint;
  const char* environmentToken;
  const char* environmentEndpoint;
  Texts expected;  // none: the service is not called
};

class Configuration : public FactoryTest, public testing::WithParamInterface<ConfigurationCase> {};

TEST_P(Configuration, IsMadeFromArgumentsThenFromTheEnvironment) {
  const ConfigurationCase& given = GetParam();
  setenv("QXA_TOKEN", given.environmentToken, 1);
  setenv("DS_ENDPOINT", given.environmentEndpoint, 1);
  DataStreamMessengerFactory factory(given.token, given.endpoint);
  unsetenv("QXA_TOKEN");
  unsetenv("DS_ENDPOINT");
  EXPECT_EQ(newestConfiguration(), given.expected);
  factory.configure("later", "");
  EXPECT_EQ(newestConfiguration(), (Texts{{"qxaToken", "later"}}));
}

const std::string url = "_datastreamingurl";
const std::pair<const std::string, std::string> ws{"wsprotocol", "ws"};
INSTANTIATE_TEST_SUITE_P(
    Cases, Configuration,
    testing::Values(ConfigurationCase{"", "", "", "", {}},
                    ConfigurationCase{"t", "", "", "", {{"qxaToken", "t"}}},
                    ConfigurationCase{"", "http://h", "", "", {{url, "http://h"}, ws}},
                    ConfigurationCase{"", "https://h", "", "", {{url, "https://h"}}},
                    ConfigurationCase{"", "HTTP://h", "", "", {{url, "HTTP://h"}}},
                    ConfigurationCase{"", "x+http:h", "", "", {{url, "x+http:h"}, ws}},
                    ConfigurationCase{"", "", "e", "http://e", {{"qxaToken", "e"}, {url, "http://e"}, ws}},
                    ConfigurationCase{"t", "ws://h", "e", "http://e", {{"qxaToken", "t"}, {url, "ws://h"}}}));

class RecordingFactory : public DataStreamMessengerFactory {
 public:
  using DataStreamMessengerFactory::createSendReceiveMessenger;
  using DataStreamMessengerFactory::DataStreamMessengerFactory;
  std::unique_ptr<ISendReceiveMessenger> createSendReceiveMessenger(std::string first,
                                                                    std::string second) override {
    names.insert({first, second});
    return nullptr;
  }
  std::set<std::string> names;
};

TEST_F(FactoryTest, NamesFreshStreamsForEachMessengerThroughAnOverriddenCreation) {
  RecordingFactory factory("", "");
  for (int i = 0; i < 2; ++i) EXPECT_EQ(factory.createSendReceiveMessenger(), nullptr);
  EXPECT_EQ(factory.names.size(), 4U);
  EXPECT_THAT(factory.names, testing::Each(testing::SizeIs(36)));
}

TEST_F(FactoryTest, BuffersByDefaultAndPassesTheCallersOptionsOnUnread) {
  auto factory = std::make_unique<DataStreamMessengerFactory>("", "");
  IMessengerFactory& creator = *factory;
  const auto plain = creator.createSendReceiveMessenger("a", "b", {{"producerACK", std::string("YES")}});
  EXPECT_EQ(std::any_cast<std::string>(streams->producerConfigurations.back().at("producerACK")), "YES");
  EXPECT_EQ(log.count("starting periodic work"), 0);
  const auto buffered = creator.createSendReceiveMessenger("a", "b");
  EXPECT_EQ(log.count("starting periodic work with interval: 20"), 1);
  EXPECT_THROW((void)creator.createSendReceiveMessenger("a", "b", {{"masgSizeRate", 1}}), std::bad_any_cast);
  EXPECT_EQ(factory->statistics().size(), 3U) << "what the service says";
  factory.reset();
  plain->send(DataStruct(number(1)));
  EXPECT_EQ(streams->sent().size(), 1U) << "messengers may outlive their factory";
}

TEST(Factory, FailsWhereThereAreNoBundles) {
  const auto directory = std::filesystem::path(testing::TempDir()) / "kestrel-no-bundles";
  std::filesystem::create_directories(directory);
  const kestrel::host::Host host({.installPath = directory});
  const LogCapture log;
  EXPECT_THAT([] { DataStreamMessengerFactory("", ""); },
              testing::ThrowsMessage<std::runtime_error>("No bundles for DataStreaming"));
  EXPECT_THAT(log.texts("asyncio::util", Severity::error),
              testing::ElementsAre(testing::HasSubstr(directory.native() + "/bin/osarch64/")));
}

TEST(Factory, IsMadeWithoutAFrameworkButItsMessengersAreNot) {
  DataStreamMessengerFactory factory("token", "");
  EXPECT_THAT([&] { (void)factory.createSendReceiveMessenger("a", "b", {}); },
              testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr("kestrel::host::Host")));
  EXPECT_THAT(factory.statistics(), IsEmpty());
}

}  // namespace library_test
