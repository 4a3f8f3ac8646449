#include "src/StreamsFactoryImpl.hpp"

#include <gmock/gmock.h>

#include <stdexcept>

#include "TransportSuite.hpp"
#include "transports/memory/MemoryTransport.hpp"

namespace kestrel::streams {
namespace {

using Config = datastreaming::DataSteamingConfig;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(StreamsFactoryImpl, UnknownEndpointFailsWithTheSchemesThatAreKnownAndNothingOfItIsRepeated) {
  for (const std::string scheme : {"http://", "ws://", "s3cret:", ""}) {
    StreamsFactoryImpl factory;
    factory.configure({{Config::DATASTREAMING_SERIVCE_URL, scheme + "s3cret:s3cret@host"},
                       {Config::QXA_TOKEN, std::string("s3cret")}});
    try {
      (void)factory.getStream("s", {});
      ADD_FAILURE() << "opened " << scheme;
    } catch (const std::runtime_error& error) {
      EXPECT_THAT(error.what(), AllOf(HasSubstr("memory:"), Not(HasSubstr("s3cret"))));
    }
    EXPECT_TRUE(factory.statistics().empty()) << "a stream that was not opened is not counted";
  }
}

TEST(StreamsFactoryImpl, BadSettingIsRefusedByItsKeyAndNothingOfItsCallIsTaken) {
  const std::tuple<std::string, std::any, std::string> cases[] = {
      {Config::QXA_TOKEN, "a C string", "std::string"},
      {Config::WS_PING_INTERVAL_S, std::string("-1"), "-1"},
      {Config::WS_MAX_RECONN_ATTEMPTS, std::string("3x"), "3x"},
      {Config::PRODUCER_ACK, std::string("yes"), "\"NO\" or \"YES\""}};
  for (const auto& [key, value, complaint] : cases) {
    StreamsFactoryImpl factory;
    try {
      factory.configure({{Config::DATASTREAMING_SERIVCE_URL, std::string("udp:")}, {key, value}});
      ADD_FAILURE() << "accepted " << key;
    } catch (const std::invalid_argument& error) {
      EXPECT_THAT(error.what(), AllOf(HasSubstr(key), HasSubstr(complaint)));
    }
    EXPECT_NO_THROW((void)factory.getStream("s", {})) << "the endpoint has changed";
  }
}

TEST(StreamsFactoryImpl, AcknowledgementComesFromTheProducerElseFromTheService) {
  ServiceSettings service;
  EXPECT_FALSE(readProducerSettings({}, service).acknowledge);
  service.update({{Config::PRODUCER_ACK, std::string("YES")}});
  EXPECT_TRUE(readProducerSettings({}, service).acknowledge);
  EXPECT_FALSE(readProducerSettings({{Config::PRODUCER_ACK, std::string("NO")}}, service).acknowledge);
  StreamsFactoryImpl factory;
  const auto stream = factory.getStream("s", {});
  EXPECT_THROW((void)factory.createProducer(stream, {{Config::PRODUCER_ACK, true}}), std::invalid_argument);
}

TEST(StreamsFactoryImpl, OpenStreamsKeepTheirTransportWhenTheEndpointChanges) {
  int made = 0;
  StreamsFactoryImpl factory([&](const ServiceSettings&) {
    ++made;
    return std::make_shared<MemoryTransport>();
  });
  const auto stream = factory.getStream("", {});
  (void)factory.getStream("", {});
  EXPECT_EQ(made, 1) << "streams share the connection";
  factory.configure({{Config::DATASTREAMING_SERIVCE_URL, std::string("udp://nowhere")}});
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

TEST(StreamsFactoryImpl, SumsUpStreamsThatEndedLongAgoAndLosesNothingOfThem) {
  StreamsFactoryImpl factory;
  const auto use = [&](const std::string& id) {
    const auto stream = factory.getStream(id, {});
    const auto producer = factory.createProducer(stream, {});
    producer->start().get();
    sendText(*producer, "12345");
    return stream;
  };
  constexpr std::uint64_t streams = 10 * OpenedStreams::keptEnded;
  const auto held = use("held");
  for (std::uint64_t i = 2; i <= streams; ++i) (void)use(i % 2 ? std::to_string(i) : "");
  const auto entries = factory.statistics();
  EXPECT_LE(entries.size(), 2 * OpenedStreams::keptEnded + 2);
  EXPECT_EQ(entries.front().streamId, "held") << "it has not ended";
  EXPECT_EQ(entries[entries.size() - 2].streamId, "") << "the newest is the last of its own";
  std::uint64_t bytes = 0;
  for (const auto& entry : entries) bytes += entry.bytesSent;
  EXPECT_EQ(bytes, 5 * streams);
  EXPECT_EQ(entries.back().endedStreams, streams - (entries.size() - 1));
  (void)use("3");
  EXPECT_EQ(factory.statistics().end()[-2].messagesSent, 1U) << "what was summed up begins anew";
}

}  // namespace
}  // namespace kestrel::streams
