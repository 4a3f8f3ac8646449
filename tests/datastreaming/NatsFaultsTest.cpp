#include <algorithm>
#include <atomic>

#include "NatsFaults.hpp"
#include "Stranger.hpp"

namespace kestrel::streams {
namespace {

using datastreaming::AttributeMap;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string storeInfo = "STREAM.INFO.KESTREL_faults";
const auto isEmpty = HasSubstr("\"messages\":0");

TEST_F(NatsFaultsTest, DurableConsumerGetsWhatItsPredecessorsDidNotTake) {
  Ends sender{factory("durable")};
  sender.startProducer("YES");
  std::vector<std::string> sent;
  std::shared_future<std::string> stored;
  while (sent.size() < 300) stored = sendText(*sender.producer, sent.emplace_back(numbered(sent.size(), 10)));
  ASSERT_EQ(outcomeOf(stored), "accepted");
  Inbox inbox;
  for (std::size_t most = 100; most <= sent.size(); most += 100) {  // each takes some, and refuses the others
    Ends ends{factory("durable")};
    std::atomic<std::size_t> refused = 0;
    ends.startConsumer(
        [&](const std::uint8_t* data, std::uint64_t size, const std::string& id, AttributeMap& a) {
          if (inbox.size() == most) return ++refused, datastreaming::Handling::notTaken;
          return inbox.callback()(data, size, id, a);
        });
    inbox.wait(most);
    ASSERT_TRUE(eventually("it to refuse", [&] { return refused > 20 || most == sent.size(); }));
    EXPECT_EQ(ends.statistics().lost, 0U);
  }
  EXPECT_EQ(inbox.waitTexts(sent.size()), sent) << "once, and in order";
}

TEST_F(NatsFaultsTest, DurableConsumerGoesOnceTheServerHasConfirmedItsLastAcknowledgement) {
  Ends ends{factory("durable")};
  ends.start();
  Stranger stranger(*_server);
  stranger.listen("$JS.ACK.KESTREL_faults.>");
  (void)sendText(*ends.producer, "a");
  ends.inbox.wait(1);
  ends.consumer.reset();
  EXPECT_TRUE(stranger.hears(true)) << "the acknowledgement may be lost";
}

TEST_P(NatsDeliveryTest, MessagesOfOtherProgramsArePassedOverCountedAndReportedNowAndThen) {
  Ends ends{factory(GetParam())};
  ends.start();
  Stranger stranger(*_server);
  const std::vector<Stranger::Headers> foreign{
      {},
      {{"Status", "503"}},
      {{"Status", "100"}},
      {{"Status", "404"}},
      {{"Status", "409"}},
      {{"Status", "abc"}},
      {{"Kestrel-Stamp", "1.1.1.1.0.0."}, {"Kestrel-A-key", "no attribute"}}};
  for (const auto& headers : foreign) stranger.publish("kestrel." + GetParam() + ".faults", headers);
  (void)sendText(*ends.producer, "ours");
  EXPECT_THAT(ends.inbox.waitTexts(1), ElementsAre("ours"));
  EXPECT_EQ(ends.statistics().lost, foreign.size());
  EXPECT_THAT(ends.errors.waitTexts(1), ElementsAre(HasSubstr("without a valid stamp")));
  ends.consumer.reset();
  if (GetParam() == "live") return;
  EXPECT_THAT(stranger.ask(storeInfo), isEmpty) << "they would come again";
}

TEST_F(NatsFaultsTest, NothingThatAPeerNamesIsPublishedTo) {
  Ends ends{factory("durable")};
  ends.startConsumer(ends.inbox.callback());
  Stranger stranger(*_server);
  constexpr const char* removal =
      "$JS.API.STREAM.DELETE.KESTREL_faults";  // needs no more than an empty message
  const std::string reader = stranger.ask("CONSUMER.INFO.KESTREL_faults.kestrel"),
                    key = "\"deliver_subject\":\"";
  const auto begin = reader.find(key) + key.size();
  const std::string inbox = reader.substr(begin, reader.find('"', begin) - begin);
  stranger.publish(inbox, {{"Status", "100"}}, removal);
  stranger.publish(inbox, {{"Status", "100"}, {"Nats-Consumer-Stalled", removal}});
  stranger.publish(inbox, {}, removal);
  EXPECT_TRUE(eventually("them to be counted", [&] { return ends.statistics().lost == 3; }));
  ends.consumer.reset();
  EXPECT_THAT(stranger.ask(storeInfo), isEmpty) << "it is gone";
}

TEST_F(NatsFaultsTest, DurableStreamGoesOnInANewStoreWhenItsOwnIsRemoved) {
  Ends ends{factory("durable")};
  ends.start("YES");
  EXPECT_EQ(sendText(*ends.producer, "a").get(), "1");
  ends.inbox.wait(1);
  EXPECT_THAT(Stranger(*_server).ask("STREAM.DELETE.KESTREL_faults"), HasSubstr("\"success\":true"));
  const auto waits = sendText(*ends.producer, "b");
  EXPECT_NE(waits.wait_for(std::chrono::milliseconds(300)), std::future_status::ready);
  Ends again{factory("durable")};
  EXPECT_EQ(outcomeOf(waits), "accepted");
  EXPECT_THAT(ends.inbox.waitTexts(2), ElementsAre("a", "b"));
  EXPECT_THAT(ends.errors.waitTexts(1), testing::Contains(HasSubstr("made anew")));
}

TEST_F(NatsFaultsTest, WhatExpiresUnreadIsReportedAndTheRestArrives) {
  Ends ends{factory("durable", "&max_bytes=20000")};
  ends.startProducer("YES");
  for (std::size_t i = 0; i < 20; ++i)
    ASSERT_EQ(outcomeOf(sendText(*ends.producer, numbered(i, 5000))), "accepted");
  ends.startConsumer(ends.inbox.callback());
  EXPECT_THAT(ends.errors.waitTexts(1)[0], HasSubstr("removed unread"));
  const std::size_t lost = ends.statistics().lost;
  ASSERT_LT(lost, 20U);
  EXPECT_EQ(ends.inbox.waitTexts(20 - lost)[0], numbered(lost, 5000));
}

TEST_P(NatsDeliveryTest, NothingIsLostUnseenWhileAConsumerIsSlow) {
  constexpr std::size_t messages = 320;  // of a megabyte each, and 256 MiB may wait
  std::vector<std::size_t> arrived;
  Door go, last;
  Ends ends{factory(GetParam())};
  ends.startConsumer([&](const std::uint8_t* data, auto, const auto&, auto&) {
    go.pass("the flood to end");
    arrived.push_back(std::stoul(std::string(reinterpret_cast<const char*>(data), 10)));
    if (arrived.back() == messages) last.open();
  });
  ends.startProducer("YES");
  for (std::size_t i = 0; i < messages; ++i) {
    const auto accepted = sendText(*ends.producer, numbered(i, 1'000'000));
    ASSERT_TRUE(i % 20 != 0 || outcomeOf(accepted) == "accepted") << i;
  }
  go.open();
  (void)sendText(*ends.producer, numbered(messages, 100'000));
  last.pass("the message after the flood");
  EXPECT_EQ(arrived.size() + ends.statistics().lost, messages + 1);
  EXPECT_EQ(ends.statistics().lost > 0, GetParam() == "live");
  EXPECT_TRUE(std::ranges::is_sorted(arrived));
  ends.consumer.reset();
}

TEST_F(NatsFaultsTest, StoreOfAnAnonymousStreamGoesWithItsLastOwnerAndOthersStay) {
  Stranger stranger(*_server);
  stranger.listen("$JS.API.STREAM.DELETE.*");
  const auto service = factory("durable");
  Ends named{service}, ends{service, service->getStream("", {})};
  ends.start("YES");
  ends.stream.reset();
  ends.producer.reset();
  EXPECT_FALSE(stranger.hears()) << "its consumer is there";
  ends.consumer.reset();
  EXPECT_TRUE(eventually("its store to be removed", [&] { return stranger.hears(); }));
  EXPECT_THAT(stranger.ask(storeInfo), isEmpty) << "it is gone";
}

}  // namespace
}  // namespace kestrel::streams
