#include "src/StreamsFactoryImpl.hpp"

#include <gmock/gmock.h>

#include <stdexcept>

#include "transports/memory/MemoryTransport.hpp"

namespace kestrel::streams {
namespace {

using datastreaming::DataSteamingConfig;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class UnknownEndpoint : public testing::TestWithParam<const char*> {};

TEST_P(UnknownEndpoint, FailsWithTheSchemeAndThoseKnownButNoSecret) {
  StreamsFactoryImpl factory;
  factory.configure(
      {{DataSteamingConfig::DATASTREAMING_SERIVCE_URL, std::string(GetParam()) + "user:pw@host"},
       {DataSteamingConfig::QXA_TOKEN, std::string("s3cret")}});
  try {
    (void)factory.getStream("s", {});
    FAIL() << "opened";
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), AllOf(HasSubstr("memory:"), Not(HasSubstr("pw@")), Not(HasSubstr("s3cret"))));
    EXPECT_THAT(error.what(), HasSubstr(std::string(GetParam(), std::string(GetParam()).find(':') + 1)));
  }
  EXPECT_TRUE(factory.statistics().empty()) << "a stream that was not opened is not counted";
}

INSTANTIATE_TEST_SUITE_P(Schemes, UnknownEndpoint, testing::Values("http://", "https://", "ws://", "udp:"));

TEST(StreamsFactoryImpl, OpenStreamsKeepTheirTransportWhenTheEndpointChanges) {
  int made = 0;
  StreamsFactoryImpl factory([&](const ServiceSettings&) {
    ++made;
    return std::make_shared<MemoryTransport>();
  });
  const auto stream = factory.getStream("", {});
  (void)factory.getStream("", {});
  EXPECT_EQ(made, 1) << "streams share the connection";
  factory.configure({{DataSteamingConfig::DATASTREAMING_SERIVCE_URL, std::string("udp://nowhere")}});
  EXPECT_NO_THROW(factory.createProducer(stream, {})->start().get());
  EXPECT_EQ(made, 1);
  (void)factory.getStream("", {});
  EXPECT_EQ(made, 2);
}

TEST(StreamsFactoryImpl, CountsANamedStreamOnceAndEachAnonymousOneForItself) {
  StreamsFactoryImpl factory;
  for (const char* id : {"b", "", "a", "b", ""}) (void)factory.getStream(id, {});
  std::vector<std::string> ids;
  for (const auto& entry : factory.statistics()) ids.push_back(entry.streamId);
  EXPECT_THAT(ids, testing::ElementsAre("b", "", "a", ""));
}

TEST(StreamsFactoryImpl, RefusesStreamsOfOthersAndUnknownAcknowledgements) {
  StreamsFactoryImpl factory;
  EXPECT_THROW((void)factory.createConsumer(nullptr), std::invalid_argument);
  const auto stream = factory.getStream("s", {});
  EXPECT_THROW((void)factory.createProducer(stream, {{DataSteamingConfig::PRODUCER_ACK, std::string("")}}),
               std::invalid_argument);
  EXPECT_THROW((void)factory.createProducer(stream, {{DataSteamingConfig::PRODUCER_ACK, true}}),
               std::invalid_argument);
}

}  // namespace
}  // namespace kestrel::streams
