#include <atomic>
#include <mutex>
#include <set>

#include "LogCapture.hpp"
#include "Outstanding.hpp"
#include "kestrel/host/Host.hpp"
#include "remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp"

namespace library_test {

const Options fastBuffered{{"masgSizeRate", 1000UL}, {"producerUsesBuffer", true}};

/// Messengers over the bundle's streams within this process.
class StreamsInProcess : public testing::Test {
 protected:
  std::unique_ptr<ISendReceiveMessenger> make(const std::string& sendTo, const std::string& receiveFrom,
                                              const Options& options = fast) {
    return factory.createSendReceiveMessenger(sendTo, receiveFrom, options);
  }
  /// A messenger that receives from "there": it keeps messages and echoes requests.
  std::unique_ptr<ISendReceiveMessenger> makeServer(const Options& options = fast) {
    auto server = make("back", "there", options);
    server->setReceiveHandler([this](const DataStruct& message) {
      const std::lock_guard lock(mutex);
      messages.push_back(message);
    });
    server->setRequestHandler([](const DataStruct& request) { return request; });
    return server;
  }
  testing::AssertionResult soonArrive(std::size_t count) {
    return eventually(std::to_string(count) + " messages", [&] {
      const std::lock_guard lock(mutex);
      return messages.size() == count;
    });
  }

  std::mutex mutex;  // guards messages
  std::vector<DataStruct> messages;
  const kestrel::host::Host host;
  DataStreamMessengerFactory factory{"", ""};
};

class BothWaysOfSending : public StreamsInProcess, public testing::WithParamInterface<Options> {};

TEST_P(BothWaysOfSending, CarryMessagesInOrderAndLargeRequests) {
  const auto server = makeServer(GetParam());
  const auto client = make("there", "back", GetParam());
  const AttributeMap attributes{{"unit", std::string("m\0s", 3)}, {"count", -3L}};
  for (int i = 0; i < 20; ++i) client->send(DataStruct(number(i), attributes, std::to_string(i)));
  ASSERT_TRUE(soonArrive(20));
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(messages[i].id, std::to_string(i));
    EXPECT_EQ(messages[i].data, number(i));
    EXPECT_EQ(messages[i].attributes, attributes);
  }
  const Array large = arrays.createArray(kestreldata::ArrayType::DOUBLE, {1000, 400});
  const DataStruct answer = client->request(DataStruct(large, attributes, "large"));
  EXPECT_EQ(answer.data, large);
  EXPECT_EQ(answer.id, "large");
}

INSTANTIATE_TEST_SUITE_P(Options, BothWaysOfSending, testing::Values(fast, fastBuffered));

TEST_F(StreamsInProcess, HoldSixtyFourRequestsOutstandingFromEightThreads) {
  const auto server = makeServer();
  const auto client = make("there", "back");
  holdSixtyFourRequestsOutstanding(*client);
}

TEST_F(StreamsInProcess, KeepPayloadsOfEightProducersWholeAndApart) {
  const auto content = [](std::size_t producer) {
    Bytes bytes(5'000'000);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = static_cast<std::uint8_t>((i / 999 + i) * (producer + 1));
    }
    return KDAHelper().kdaFromByteArray(bytes);
  };
  const auto server = makeServer();
  std::vector<std::jthread> threads;
  for (std::size_t producer = 0; producer < 8; ++producer) {
    threads.emplace_back([&, producer] {
      make("there", "unused")->send(DataStruct(content(producer), {}, std::to_string(producer)));
    });
  }
  ASSERT_TRUE(soonArrive(8));
  std::set<std::string> producers;
  for (const DataStruct& message : messages) {
    producers.insert(message.id);
    EXPECT_TRUE(message.data == content(std::stoul(message.id))) << message.id;
  }
  EXPECT_EQ(producers.size(), 8U);
}

TEST_F(StreamsInProcess, StayPromptBehindTwoHundredIdleBuffers) {
  const auto server = makeServer();
  std::vector<std::unique_ptr<ISendReceiveMessenger>> clients;
  for (int i = 0; i < 200; ++i) {
    clients.push_back(factory.createSendReceiveMessenger("there", "idle " + std::to_string(i)));
  }
  for (std::size_t i = 0; i < clients.size(); ++i) {
    const auto took = timeOf([&] {
      clients[i]->send(DataStruct(number(1)));
      ASSERT_TRUE(soonArrive(i + 1));
    });
    EXPECT_LT(took, 1s * slowness) << i;
  }
}

TEST_F(StreamsInProcess, SurviveAThousandMessengersDestroyedUnderAFlood) {
  const std::jthread flood([&](const std::stop_token& stop) {
    const auto peer = make("target", "unused");
    while (!stop.stop_requested()) peer->send(DataStruct(number(1)));
  });
  for (int i = 0; i < 1000; ++i) {
    auto received = std::make_unique<std::atomic<int>>(0);
    auto messenger = make("", "target");
    messenger->setReceiveHandler([count = received.get()](const DataStruct&) { ++*count; });
    ASSERT_TRUE(eventually("a message of the flood", [&] { return *received > 0; }));
    messenger.reset();
    received.reset();  // a handler that still ran would touch freed memory
  }
}

TEST_F(StreamsInProcess, RefuseAWrongTypeUnderAChunkKeyAndReportIt) {
  const LogCapture log;
  const auto server = makeServer();
  const auto client = make("there", "unused");
  client->send(DataStruct(number(1), {{"COMPRESSIONTYPE", 1L}}));
  client->send(DataStruct(number(2)));
  ASSERT_TRUE(soonArrive(1));
  EXPECT_EQ(messages[0].data, number(2));
  EXPECT_TRUE(eventually("the report", [&] { return log.count("Error from Producer: ") == 1; }));
  EXPECT_EQ(log.count("must be a text, an integer came"), 1) << "a failure is logged once";
}

}  // namespace library_test
