#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <ctime>
#include <fstream>
#include <kestrel/datastreaming/Keys.hpp>

#include "NatsFaults.hpp"
#include "Stranger.hpp"
#include "transports/nats/LiveProducer.hpp"
#include "transports/nats/LiveReceiver.hpp"
#include "transports/nats/NatsConsumer.hpp"

namespace kestrel::streams {
namespace {

using datastreaming::AttributeMap;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST_F(NatsFaultsTest, DurableConsumerGetsWhatItsPredecessorsDidNotTake) {
  constexpr std::size_t messages = 300;
  Ends sender{factory("durable")};
  sender.startProducer("YES");
  std::vector<std::string> sent;
  for (std::size_t i = 0; i + 1 < messages; ++i) {
    (void)sendText(*sender.producer, sent.emplace_back("message " + std::to_string(i)));
  }
  const auto pieces = sendPieces(*sender.producer, sent.emplace_back("a payload"), 2);
  ASSERT_TRUE(ready(pieces.back(), "the last piece to be stored"));
  Inbox inbox;
  for (std::size_t most = 100; most <= messages; most += 100) {  // each takes some, and refuses the others
    Ends ends{factory("durable")};
    std::atomic<std::size_t> refused = 0;
    const auto take = inbox.callback();
    ends.startConsumer(
        [&](const std::uint8_t* data, std::uint64_t size, const std::string& id, AttributeMap& a) {
          if (inbox.size() >= most) {
            ++refused;
            return datastreaming::Handling::notTaken;
          }
          return take(data, size, id, a);
        });
    inbox.wait(most);
    ASSERT_TRUE(eventually("it to refuse", [&] { return refused > 20 || most == messages; }));
    EXPECT_EQ(ends.statistics().lost, 0U);
  }
  EXPECT_EQ(inbox.waitTexts(messages), sent) << "once, and in order";
}

TEST_F(NatsFaultsTest, TimeWithoutTrafficIsNoSilenceOfThePayloadBehindIt) {
  auto reporter = std::make_shared<ErrorReporter>();
  const auto context = std::make_shared<StreamContext>("idle", reporter);
  ServiceSettings settings;
  settings.update({{datastreaming::DataSteamingConfig::DATASTREAMING_SERIVCE_URL, _server->url()}});
  const auto connection = NatsConnection::connect(readNatsEndpoint(settings));
  Inbox inbox;
  NatsConsumer consumer(
      std::make_shared<LiveReceiver>(context, connection, "kestrel.live.idle",
                                     PayloadSequencer::Limits{.silence = std::chrono::seconds(1)}));
  consumer.setDataCallback(inbox.callback());
  consumer.start().get();
  LiveProducer producer(context, connection, "kestrel.live.idle", {});
  producer.start().get();
  for (int round = 0; round < 3; ++round) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    sendPieces(producer, "abcdefgh", 1);
  }
  EXPECT_EQ(inbox.waitTexts(3), std::vector<std::string>(3, "abcdefgh"));
}

class NatsStrangerTest : public NatsFaultsTest, public testing::WithParamInterface<const char*> {};

TEST_P(NatsStrangerTest, MessagesOfOtherProgramsArePassedOverCountedAndReportedNowAndThen) {
  const std::string delivery = GetParam();
  Inbox inbox, errors;
  Ends ends{factory(delivery)};
  ends.startConsumer(inbox.callback(), [&](const std::exception& error) {
    errors.add({error.what(), "", {}});
  });
  ends.startProducer();
  Stranger stranger(*_server);
  const std::array statuses{"503", "503", "100", "404", "408", "409", "503", "abc"};
  stranger.publish("kestrel." + delivery + ".faults", {});
  for (const char* status : statuses)
    stranger.publish("kestrel." + delivery + ".faults", {{"Status", status}});
  (void)sendText(*ends.producer, "ours");
  EXPECT_EQ(inbox.waitTexts(1)[0], "ours");
  EXPECT_EQ(ends.statistics().lost, statuses.size() + 1);
  EXPECT_THAT(errors.waitTexts(1), testing::ElementsAre(HasSubstr("without a valid stamp")));
  ends.consumer.reset();
  if (delivery == "durable") {
    EXPECT_EQ(stranger.stored("KESTREL_faults"), 0U) << "they would come again";
  }
}

TEST_F(NatsFaultsTest, NothingThatAPeerNamesIsPublishedTo) {
  Inbox inbox;
  Ends ends{factory("durable")};
  ends.startConsumer(inbox.callback());
  ends.startProducer();
  Stranger stranger(*_server);
  stranger.makeStore("OTHERS");
  const std::string removal = "$JS.API.STREAM.DELETE.OTHERS";  // which needs no more than an empty message
  const std::string delivery = stranger.readerOf("KESTREL_faults").inbox;
  stranger.publish(delivery, {{"Status", "100"}}, removal);
  stranger.publish(delivery, {{"Status", "100"}, {"Nats-Consumer-Stalled", removal}});
  stranger.publish(delivery, {}, removal);
  ASSERT_TRUE(eventually("them to be counted", [&] { return ends.statistics().lost == 3; }));
  (void)sendText(*ends.producer, "ours");
  EXPECT_EQ(inbox.waitTexts(1)[0], "ours");
  ends.consumer.reset();
  EXPECT_EQ(stranger.stored("OTHERS"), 0U) << "the question fails if it is gone";
}

TEST_F(NatsFaultsTest, ReadersThatDoNotLastAreReplacedMoreAndMoreSlowly) {
  Inbox inbox;
  Ends ends{factory("durable")};
  ends.startConsumer(inbox.callback());
  ends.startProducer();
  Stranger stranger(*_server);
  const auto begun = std::chrono::steady_clock::now();
  for (int setback = 1; setback <= 5; ++setback) {
    const auto reader = stranger.readerOf("KESTREL_faults");
    const auto replaced = [&] {
      stranger.publish(reader.inbox, {{"Status", "100"}, {"Nats-Last-Consumer", "77"}});
      const auto present = stranger.readerOf("KESTREL_faults");
      return !present.inbox.empty() && present.created != reader.created;
    };
    ASSERT_TRUE(eventually("another reader", replaced));
  }
  EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(50 + 100 + 200 + 400));
  (void)sendText(*ends.producer, "ours");
  EXPECT_EQ(inbox.waitTexts(1)[0], "ours");
}

INSTANTIATE_TEST_SUITE_P(Nats, NatsStrangerTest, testing::Values("live", "durable"),
                         [](const auto& info) { return std::string(info.param); });

TEST_F(NatsFaultsTest, DurableStreamGoesOnInANewStoreWhenItsOwnIsRemoved) {
  Inbox inbox, errors;
  Ends ends{factory("durable")};
  ends.startConsumer(inbox.callback(), [&](const std::exception& error) {
    errors.add({error.what(), "", {}});
  });
  ends.startProducer("YES");
  EXPECT_EQ(sendText(*ends.producer, "a").get(), "1");
  inbox.wait(1);
  Stranger(*_server).removeStore("KESTREL_faults");
  const auto waits = sendText(*ends.producer, "b");
  EXPECT_NE(waits.wait_for(std::chrono::milliseconds(300)), std::future_status::ready);
  Ends again{factory("durable")};
  EXPECT_EQ(outcomeOf(waits), "accepted");
  EXPECT_THAT(inbox.waitTexts(2), testing::ElementsAre("a", "b"));
  EXPECT_THAT(errors.waitTexts(1), testing::Contains(HasSubstr("made anew")));
}

struct Retention {
  const char* name;
  const char* query;
  std::chrono::milliseconds wait;  ///< before the consumer comes
  std::size_t kept;                ///< at most so many of twenty messages of 5000 bytes
};
void PrintTo(const Retention& retention, std::ostream* out) {
  *out << retention.name;
}

class NatsRetentionTest : public NatsFaultsTest, public testing::WithParamInterface<Retention> {};

TEST_P(NatsRetentionTest, WhatExpiresUnreadIsReportedAndTheRestArrives) {
  Ends ends{factory("durable", GetParam().query)};
  ends.startProducer("YES");
  std::shared_future<std::string> stored;
  for (std::size_t i = 0; i < 20; ++i) stored = sendText(*ends.producer, numbered(i, 5000));
  ASSERT_EQ(outcomeOf(stored), "accepted");
  std::this_thread::sleep_for(GetParam().wait);
  Inbox inbox, errors;
  ends.startConsumer(inbox.callback(), [&](const std::exception& error) {
    errors.add({error.what(), "", {}});
  });
  (void)sendText(*ends.producer, "fresh");
  EXPECT_THAT(errors.waitTexts(1)[0], HasSubstr("removed unread"));
  const std::size_t lost = ends.statistics().lost;
  EXPECT_GE(lost, 20 - GetParam().kept);
  const auto texts = inbox.waitTexts(21 - lost);
  EXPECT_EQ(texts.back(), "fresh");
  if (lost < 20) {
    EXPECT_EQ(texts[0], numbered(lost, 5000));
  }
}

INSTANTIATE_TEST_SUITE_P(Nats, NatsRetentionTest,
                         testing::Values(Retention{"Bytes", "&max_bytes=20000", {}, 4},
                                         Retention{"Age", "&max_age_s=1", std::chrono::seconds(2), 0}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(NatsFaultsTest, ConsumerThatFellBehindItsStoreGoesOnAtOnceWithWhatIsLeft) {
  constexpr std::size_t messages = 300;
  Inbox inbox;
  Door entered, go;
  Ends ends{factory("durable", "&max_bytes=3000000")};
  ends.startConsumer(
      [&](const std::uint8_t* data, std::uint64_t size, const std::string& id, AttributeMap& attributes) {
        entered.open();
        go.pass("the store to overflow");
        inbox.callback()(data, size, id, attributes);
      });
  ends.startProducer("YES");
  std::shared_future<std::string> stored;
  for (std::size_t i = 0; i < messages; ++i) {
    stored = sendText(*ends.producer, numbered(i, 100'000));
    if (i == 0) entered.pass("the first message");
  }
  ASSERT_EQ(outcomeOf(stored), "accepted");
  go.open();
  const auto lastArrived = [&] { return std::stoul(inbox.waitTexts(1).back()) == messages - 1; };
  ASSERT_TRUE(eventually("the newest message", lastArrived));
  EXPECT_GT(ends.statistics().lost, 0U);
  EXPECT_EQ(inbox.size() + ends.statistics().lost, messages);
}

TEST_F(NatsFaultsTest, SendDoesNotWaitForAServerThatStandsStill) {
  Ends ends{factory("live")};
  ends.startProducer();
  _server->freeze();
  const auto begun = std::chrono::steady_clock::now();
  std::size_t accepted = 0;
  const std::string megabyte(1'000'000, 'x');
  while (accepted < 400 && outcomeOf(sendText(*ends.producer, megabyte)) == "accepted") ++accepted;
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(5));
  EXPECT_GT(accepted, 250U);
  EXPECT_LT(accepted, 300U) << "what waits must be bounded";
  EXPECT_THAT(ends.statistics().lastError, HasSubstr("bytes that may wait"));
  const auto used = std::clock();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_LT(std::clock() - used, CLOCKS_PER_SEC / 10) << "waiting for the socket must cost nothing";
  _server->thaw();
}

std::size_t residentMegabytes() {
  std::ifstream status("/proc/self/statm");
  std::size_t total = 0, resident = 0;
  status >> total >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) >> 20;
}

struct Slowness {
  const char* delivery;
  bool loses;
};

class NatsSlowConsumerTest : public NatsFaultsTest, public testing::WithParamInterface<Slowness> {};

TEST_P(NatsSlowConsumerTest, MemoryStaysBoundedAndNothingIsLostUnseen) {
  constexpr std::size_t messages = 400;
  std::mutex mutex;
  std::vector<std::size_t> arrived;
  Inbox errors;
  Door entered, go, last;
  Ends ends{factory(GetParam().delivery)};
  ends.startConsumer(
      [&](const std::uint8_t* data, std::uint64_t size, const std::string&, AttributeMap&) {
        const std::size_t number = std::stoul(std::string(reinterpret_cast<const char*>(data), 10));
        if (number == 0) entered.open();
        if (number == 0) go.pass("the flood to end");
        const std::lock_guard lock(mutex);
        if (size > 10) arrived.push_back(number);
        if (number == messages) last.open();
      },
      [&](const std::exception& error) {
        errors.add({error.what(), "", {}});
      });
  ends.startProducer("YES");
  [[maybe_unused]] const std::size_t before = residentMegabytes();
  std::shared_future<std::string> accepted;
  for (std::size_t i = 0; i < messages; ++i) {
    accepted = sendText(*ends.producer, numbered(i, 1'000'000));
    if (i == 0) entered.pass("the first message");
    if (i % 20 != 19) continue;
    ASSERT_TRUE(ready(accepted, "the server to take a message"));
  }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they keep freed memory, and more
  EXPECT_LT(residentMegabytes(), before + 340);
#endif
  go.open();
  (void)sendText(*ends.producer, numbered(messages, 100'000));
  last.pass("the message after the flood");
  const std::lock_guard lock(mutex);
  EXPECT_EQ(arrived.size() + ends.statistics().lost, messages + 1);
  EXPECT_EQ(GetParam().loses, ends.statistics().lost > 0);
  EXPECT_TRUE(std::is_sorted(arrived.begin(), arrived.end()));
  if (GetParam().loses) {
    EXPECT_THAT(errors.waitTexts(1),
                testing::Each(testing::AnyOf(HasSubstr("messages were dropped"), HasSubstr("are missing"))));
  }
}

INSTANTIATE_TEST_SUITE_P(Nats, NatsSlowConsumerTest,
                         testing::Values(Slowness{"live", true}, Slowness{"durable", false}),
                         [](const auto& info) { return std::string(info.param.delivery); });

TEST_F(NatsFaultsTest, StoreOfAnAnonymousStreamGoesWithItsLastOwnerAndOthersStay) {
  Inbox inbox;
  Stranger stranger(*_server);
  {
    auto service = factory("durable");
    Ends ends{service, service->getStream("", {})};
    Ends named{service};
    ends.startProducer("YES");
    named.startProducer("YES");
    EXPECT_EQ(outcomeOf(sendText(*named.producer, "stays")), "accepted");
    ends.startConsumer(inbox.callback());
    ends.stream.reset();
    ends.producer.reset();
    EXPECT_EQ(stranger.stores().size(), 2U);
    ends.consumer.reset();
    EXPECT_TRUE(eventually("the store to go", [&] { return stranger.stores().size() == 1; }));
  }
  EXPECT_THAT(stranger.stores(), testing::ElementsAre("KESTREL_faults"));
}

TEST_F(NatsFaultsTest, ServerWithoutRoomForAStoreIsToldWithTheRemedies) {
  const NatsServer small({.store = false,
                          .more = "jetstream { store_dir: '" + (_server->directory() / "small").string() +
                                  "', max_file_store: 1000000 }"});
  try {
    (void)natsFactory(small.url("delivery=durable"))->getStream("s", {});
    ADD_FAILURE() << "it was made";
  } catch (const std::exception& error) {
    EXPECT_THAT(error.what(), AllOf(HasSubstr("1073741824 bytes"), HasSubstr("max_bytes")));
  }
}

TEST_F(NatsFaultsTest, DurableMessageIsGivenUpAfterItsTimeWithAReport) {
  Ends ends{factory("durable", "&retry_s=1")};
  ends.startProducer("YES");
  _server->kill();
  EXPECT_THAT(outcomeOf(sendText(*ends.producer, "x")), AllOf(HasSubstr("given up"), HasSubstr("1 s")));
  EXPECT_EQ(ends.statistics().lost, 1U);
}

}  // namespace
}  // namespace kestrel::streams
