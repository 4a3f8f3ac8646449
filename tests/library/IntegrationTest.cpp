#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <numeric>

#include "LogCapture.hpp"
#include "Wire.hpp"
#include "kestrel/host/Host.hpp"
#include "remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp"

namespace library_test {
namespace {

using namespace remote_connectivity::asyncio::util;
using Options = std::unordered_map<std::string, std::any>;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int slowness = 10;
#else
constexpr int slowness = 1;
#endif

const Options fast{{"masgSizeRate", 1000000UL}};
const Options fastBuffered{{"masgSizeRate", 1000UL}, {"producerUsesBuffer", true}};

/// Keeps what arrives at a messenger.
class Inbox {
 public:
  explicit Inbox(ISendReceiveMessenger& messenger) {
    messenger.setReceiveHandler([this](const DataStruct& message) {
      const std::lock_guard lock(_mutex);
      _messages.push_back(message);
    });
  }
  std::vector<DataStruct> messages() const {
    const std::lock_guard lock(_mutex);
    return _messages;
  }
  testing::AssertionResult soonHolds(std::size_t count) const {
    return eventually(std::to_string(count) + " messages", [&] { return messages().size() >= count; });
  }

 private:
  mutable std::mutex _mutex;  // guards _messages
  std::vector<DataStruct> _messages;
};

/// Messengers over the bundle's streams within this process.
class StreamsInProcess : public testing::Test {
 protected:
  std::unique_ptr<ISendReceiveMessenger> make(const std::string& sendTo, const std::string& receiveFrom,
                                              const Options& options = fast) {
    return factory.createSendReceiveMessenger(sendTo, receiveFrom, options);
  }

  const kestrel::host::Host host;
  DataStreamMessengerFactory factory{"", ""};
};

class BothWaysOfSending : public StreamsInProcess, public testing::WithParamInterface<Options> {};

TEST_P(BothWaysOfSending, CarryMessagesInOrderWithTheirAttributes) {
  const auto server = make("back", "there");
  const Inbox inbox(*server);
  const auto client = make("there", "back", GetParam());
  const AttributeMap attributes{{"unit", std::string("m\0s", 3)}, {"count", -3L}};
  for (int i = 0; i < 20; ++i) client->send(DataStruct(number(i), attributes, std::to_string(i)));
  ASSERT_TRUE(inbox.soonHolds(20));
  const auto messages = inbox.messages();
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(messages[i].id, std::to_string(i));
    EXPECT_EQ(messages[i].data, number(i));
    EXPECT_EQ(messages[i].attributes, attributes);
  }
}

TEST_P(BothWaysOfSending, CarryLargeRequestsAndResponses) {
  const auto server = make("back", "there", GetParam());
  server->setRequestHandler([](const DataStruct& request) { return request; });
  const auto client = make("there", "back", GetParam());
  std::vector<double> values(400'000);
  std::iota(values.begin(), values.end(), 0.0);
  const Array data = arrays().createArray<double>({1000, 400}, values.begin(), values.end());
  const DataStruct answer = client->request(DataStruct(data, {{"unit", 1L}}, "large"));
  EXPECT_EQ(answer.data, data);
  EXPECT_EQ(answer.id, "large");
}

INSTANTIATE_TEST_SUITE_P(Options, BothWaysOfSending, testing::Values(fast, fastBuffered));

TEST_F(StreamsInProcess, HoldSixtyFourRequestsOutstandingFromEightThreads) {
  const auto server = make("back", "there");
  server->setRequestHandler([](const DataStruct& request) {
    return DataStruct(number(numberOf(request.data) * 2), {}, request.id);
  });
  const auto client = make("there", "back");
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&, thread] {
      for (int round = 0; round < 5; ++round) {
        std::vector<std::pair<std::shared_future<DataStruct>, std::string>> pending;
        for (int i = 0; i < 8; ++i) {
          pending.push_back(client->asyncRequest(DataStruct(number(thread * 100 + i))));
        }
        for (int i = 0; i < 8; ++i) {
          const DataStruct answer = client->getAsyncRequestResult(pending[i].first, pending[i].second);
          EXPECT_EQ(numberOf(answer.data), 2 * (thread * 100 + i));
        }
      }
    });
  }
}

TEST_F(StreamsInProcess, LetAHandlerAskAThirdMessenger) {
  const auto third = make("third-out", "third-in");
  third->setRequestHandler([](const DataStruct&) { return DataStruct(number(3)); });
  const auto toThird = make("third-in", "third-out");
  const auto server = make("back", "there");
  server->setRequestHandler([&](const DataStruct& request) { return toThird->request(request); });
  EXPECT_EQ(numberOf(make("there", "back")->request(DataStruct(number(1))).data), 3);
}

TEST_F(StreamsInProcess, GiveBackWhatWasSentWhereBothHaveOneName) {
  const auto echo = make("same", "same");
  const Inbox inbox(*echo);
  echo->send(DataStruct(number(9)));
  ASSERT_TRUE(inbox.soonHolds(1));
  EXPECT_EQ(inbox.messages()[0].data, number(9));
}

TEST_F(StreamsInProcess, KeepPayloadsOfEightProducersWholeAndApart) {
  constexpr std::size_t size = 5'000'000;
  const auto content = [](int producer) {
    std::vector<std::uint8_t> bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
      bytes[i] = static_cast<std::uint8_t>((i / 999 + i) * static_cast<std::size_t>(producer + 1));
    }
    return KDAHelper().kdaFromByteArray(bytes);
  };
  const auto server = make("", "there");
  const Inbox inbox(*server);
  std::vector<std::jthread> threads;
  for (int producer = 0; producer < 8; ++producer) {
    threads.emplace_back([&, producer] {
      const auto client = make("there", "unused " + std::to_string(producer));
      client->send(DataStruct(content(producer), {{"producer", static_cast<long>(producer)}}));
    });
  }
  ASSERT_TRUE(inbox.soonHolds(8));
  std::vector<long> producers;
  for (const DataStruct& message : inbox.messages()) {
    producers.push_back(std::get<long>(message.attributes.at("producer")));
    EXPECT_TRUE(message.data == content(static_cast<int>(producers.back()))) << producers.back();
  }
  EXPECT_THAT(producers, testing::UnorderedElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

TEST_F(StreamsInProcess, StayPromptBehindTwoHundredIdleBuffers) {
  const auto server = make("", "sink");
  const Inbox inbox(*server);
  std::vector<std::unique_ptr<ISendReceiveMessenger>> clients;
  for (int i = 0; i < 200; ++i) {
    clients.push_back(factory.createSendReceiveMessenger("sink", "idle " + std::to_string(i)));
  }
  for (std::size_t i = 0; i < clients.size(); ++i) {
    const auto took = timeOf([&] {
      clients[i]->send(DataStruct(number(static_cast<double>(i))));
      ASSERT_TRUE(inbox.soonHolds(i + 1));
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
  const auto server = make("", "there");
  const Inbox inbox(*server);
  const auto client = make("", "unused");
  std::atomic<int> reports = 0;
  client->setProducerErrorHandler([&](const std::exception&) { ++reports; });
  client->setSendStreamId("there");
  client->send(DataStruct(number(1), {{"COMPRESSIONTYPE", 1L}}));
  client->send(DataStruct(number(2)));
  ASSERT_TRUE(inbox.soonHolds(1));
  EXPECT_EQ(inbox.messages()[0].data, number(2));
  EXPECT_TRUE(eventually("the report", [&] { return reports == 1; }));
  EXPECT_TRUE(log.wroteError("Error from Producer: "));
}

}  // namespace
}  // namespace library_test
