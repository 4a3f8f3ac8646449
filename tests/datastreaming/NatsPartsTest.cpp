#include <gtest/gtest.h>

#include <kestrel/datastreaming/Keys.hpp>
#include <set>

#include "TransportSuite.hpp"
#include "transports/nats/ArrivalClock.hpp"
#include "transports/nats/Backoff.hpp"
#include "transports/nats/DurablePosition.hpp"
#include "transports/nats/MessageHeaders.hpp"
#include "transports/nats/NatsEndpoint.hpp"
#include "transports/nats/PublishLedger.hpp"
#include "transports/nats/ReaderSubjects.hpp"
#include "transports/nats/Resequencer.hpp"
#include "transports/nats/StoreReply.hpp"
#include "transports/nats/SubjectNames.hpp"

namespace kestrel::streams {
namespace {

using datastreaming::AttributeValue;
using datastreaming::ConfigurationMap;
using datastreaming::DataSteamingConfig;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

NatsEndpoint endpointOf(const std::string& url, const ConfigurationMap& more = {}) {
  ServiceSettings settings;
  settings.update({{DataSteamingConfig::DATASTREAMING_SERIVCE_URL, url}});
  settings.update(more);
  return readNatsEndpoint(settings);
}

TEST(NatsEndpointTest, QueryIsReadAndSettingsGoBeforeIt) {
  const auto endpoint = endpointOf(
      "tls://u:p%2C%40%3f%25@a:1,TLS://t@[::1],b:2/"
      "?delivery=durable&max_age_s=60&max_bytes=1000&tls_ca=%2Ftmp%2Fca&"
      "wsPingIntervalS=7&wsMaxReconnAttempts=3&inbox_prefix=in.me",
      {{DataSteamingConfig::WS_PING_INTERVAL_S, std::string("9")},
       {DataSteamingConfig::WS_FIRST_RECONN_BACKOFF_MS, std::string("40")}});
  ASSERT_EQ(endpoint.servers.size(), 3U);
  EXPECT_EQ(endpoint.servers[0].user, "u");
  EXPECT_EQ(endpoint.servers[0].password, "p,@?%");
  EXPECT_EQ(endpoint.servers[1].user, "t");
  EXPECT_EQ(endpoint.shown, "tls://a:1,tls://[::1]:4222,tls://b:2");
  EXPECT_EQ(endpoint.inboxPrefix, "in.me");
  EXPECT_TRUE(endpoint.secure);
  EXPECT_EQ(endpoint.delivery, NatsEndpoint::Delivery::durable);
  EXPECT_EQ(endpoint.maxAge, seconds(60));
  EXPECT_EQ(endpoint.maxBytes, 1000);
  EXPECT_EQ(endpoint.certificateAuthority, "/tmp/ca");
  EXPECT_EQ(endpoint.pingInterval, seconds(9));
  EXPECT_EQ(endpoint.firstBackoff, milliseconds(40));
  EXPECT_EQ(endpoint.maxReconnects, 3);
}

struct BadEndpoint {
  const char* url;
  const char* told;
};

TEST(NatsEndpointTest, WhatMakesNoSenseIsToldByKeyAndPlaceAndNothingOfItIsRepeated) {
  for (const auto& [url, told] :
       {BadEndpoint{"nats://u:SECRET@a:1?SECRET=live", "character 21: unknown key in the query"},
        {"nats://u:SECRET@a:1?delivery=SECRET", "character 30: 'delivery' must be"},
        {"nats://u:SECRET@a:1?max_age_s=1SECRET", "'max_age_s' must be a whole number"},
        {"nats://u:SECRET@a:1?max_bytes=0", "'max_bytes' must be a whole number from 1"},
        {"nats://u:SECRET@a:1?max_bytes", "no value"},
        {"nats://u:SECRET@a:1?tls_ca=SECRET%2", "two hexadecimal digits"},
        {"nats://u:SECRET%zz@a:1", "two hexadecimal digits"},
        {"nats://u:SECRET@a:1?tls_cert=SECRET", "given together"},
        {"nats://u:SECRET@a:1?inbox_prefix=SECRET.>", "'inbox_prefix' must be a subject"},
        {"nats://u:SECRET@a:1?inbox_prefix=kestrel.SECRET", "not below kestrel"},
        {"nats://u:SECRET@a:1,tls://u:SECRET@b:2", "character 21: nats:// and tls:// servers"},
        {"nats://u:SECRET@a:1,http://u:SECRET@b:2", "nats://host:port"},
        {"u:SECRET@a:1", "nats://host:port"},
        {"nats://u:SECRET@:1", "no host"},
        {"nats://u:SECRET@a:1?", "unknown key"},
        {"nats://u:SECRET@a:0", "character 18: behind a host there may be a port"},
        {"nats://u:SECRET@a:65536", "from 1 to 65535"},
        {"nats://u:SECRET@a:", "from 1 to 65535"},
        {"nats://u:SECRET@a:-1", "from 1 to 65535"},
        {"nats://u:SECRET@[::1]SECRET", "from 1 to 65535"},
        {"nats://u:SECRET@[::1", "in brackets"},
        {"nats://a:1?delivery=durable,nats://u:SECRET@b:2", "'@' in the query"},
        {"nats://u:1?SECRET@a:1", "%3F"},
        {"nats://u:1?tls_ca=SECRET@a:1", "%3F"},
        {"nats://u:1,SECRET@a:1", "%2C"},
        {"nats://u:SECRET,x@a:1", "from 1 to 65535"},
        {"nats://u:x@SECRET@a:1", "percent-encoded"}}) {
    try {
      (void)endpointOf(url);
      ADD_FAILURE() << url << " was taken";
    } catch (const std::runtime_error& error) {
      EXPECT_THAT(error.what(), AllOf(HasSubstr(told), Not(HasSubstr("SECRET")))) << url;
    }
  }
}

TEST(SubjectNamesTest, DifferentIdentifiersHaveDifferentTokensOfSafeCharacters) {
  const std::string longOne(500, 'x');
  const std::vector<std::string> identifiers{
      "a",    "A", "a.b",  "a_2Eb",    "a b",   "a*",          ">",   std::string(1, '\0'),
      "\r\n", "_", "_hab", "\xc3\xa4", longOne, longOne + "y", "a-b", "a_b"};
  std::set<std::string> tokens;
  for (const auto& identifier : identifiers) {
    const std::string token = makeToken(identifier);
    EXPECT_EQ(token, makeToken(identifier));
    EXPECT_EQ(token.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_"),
              std::string::npos);
    EXPECT_LT(token.size(), 140U);
    tokens.insert(token);
  }
  EXPECT_EQ(tokens.size(), identifiers.size());
  EXPECT_NE(makeToken(""), makeToken(""));
  EXPECT_EQ(makeToken("Plain-Name9"), "Plain-Name9");
}

TEST(MessageHeadersTest, StampsSurviveTheirText) {
  Stamp stamp;
  stamp.producer = 0xfedcba9876543210;
  stamp.sequence = 18446744073709551615U;
  stamp.payload = 5;
  stamp.chunkIndex = 4294967295U;
  stamp.refusedBefore = 3;
  stamp.chunked = stamp.abandons = true;
  stamp.last = false;
  const auto read = readStamp(writeStamp(stamp).c_str());
  ASSERT_TRUE(read);
  EXPECT_EQ(writeStamp(*read), "1.fedcba9876543210.18446744073709551615.5.4294967295.3.cma");
  EXPECT_TRUE(read->chunked && !read->last && read->abandons);
  for (const char* damaged : {"", "1", "2.1.1.1.0.0.", "1.0.1.1.0.0.", "1.1.0.1.0.0.", "1.1.1.1.0.0",
                              "1.1.1.1.0.0.x", "1.1.1.1.99999999999.0.", "1.-1.1.1.0.0."}) {
    EXPECT_FALSE(readStamp(damaged)) << damaged;
  }
}

TEST(MessageHeadersTest, AttributesKeepTheirTypeAndEveryByte) {
  std::string all;
  for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
  for (const AttributeValue& value :
       {AttributeValue(0L), AttributeValue(-9223372036854775807L - 1), AttributeValue(std::string()),
        AttributeValue(std::string("7")), AttributeValue(all)}) {
    const std::string text = writeAttribute(value);
    EXPECT_EQ(text.find_first_of(" \r\n\t"), std::string::npos);
    EXPECT_EQ(readAttribute(text), value);
  }
  for (const char* damaged : {"", "x1", "i", "i1x", "s%", "s%1", "s%zz"})
    EXPECT_FALSE(readAttribute(damaged)) << damaged;
}

TEST(StoreReplyTest, NumberOrReasonIsRead) {
  EXPECT_EQ(readStoreReply(R"({"stream":"KESTREL_a", "seq":17,"duplicate": true})").sequence, 17U);
  EXPECT_EQ(readStoreReply(R"({"error":{"code":503,"description":"no room"},"stream":"s","seq":0})").error,
            "no room");
  EXPECT_THAT(readStoreReply("hello").error, HasSubstr("hello"));
}

TEST(DurablePositionTest, WhatComesAgainIsDeliveredOnceAndAcknowledgedWhereItWasSentLast) {
  DurablePosition position;
  position.startAfter(4);
  EXPECT_EQ(position.arrived(2, "a2").expired, 0U) << "holes among what was sent before mean nothing";
  EXPECT_TRUE(position.arrived(4, "a4").fresh);
  EXPECT_EQ(position.settle(2), "a2");
  const auto settled = position.arrived(2, "b2");
  EXPECT_TRUE(settled.settled && !settled.fresh);
  const auto open = position.arrived(4, "b4");
  EXPECT_TRUE(!open.settled && !open.fresh);
  EXPECT_EQ(position.settle(4), "b4");
  EXPECT_EQ(position.arrived(8, "b8").expired, 3U);
}

TEST(ReaderSubjectsTest, OnlyWhatBelongsToThisReaderIsAnswered) {
  const ReaderSubjects subjects(SubjectNames("a"));
  for (const char* reply : {"$JS.ACK.KESTREL_a.kestrel.1.70.9.1795387144016166356.2",
                            "$JS.ACK.hub.acc.KESTREL_a.kestrel.1.70.9.1795387144016166356.2",
                            "$JS.ACK._.acc.KESTREL_a.kestrel.1.70.9.1795387144016166356.2.xYz"}) {
    const auto numbers = subjects.readDelivery(reply);
    ASSERT_TRUE(numbers) << reply;
    EXPECT_EQ(numbers->stored, 70U);
    EXPECT_EQ(numbers->count, 9U);
    EXPECT_FALSE(subjects.isFlowControl(reply));
  }
  EXPECT_TRUE(subjects.readDelivery(subjects.acknowledgement({70, 9})));
  EXPECT_TRUE(subjects.isFlowControl("$JS.FC.KESTREL_a.kestrel.YsEw"));
  EXPECT_TRUE(subjects.isFlowControl("$JS.FC.hub.acc.KESTREL_a.kestrel.YsEw"));
  for (const char* foreign :
       {"", "_INBOX.x", "$JS.API.STREAM.DELETE.KESTREL_a", "$JS.FC.KESTREL_b.kestrel.YsEw",
        "$JS.FC.KESTREL_a.other.YsEw", "$JS.FC.KESTREL_a.kestrel", "$JS.FC.KESTREL_a.kestrel.a.b.c.d.e.f",
        "$JS.FC.KESTREL_a.kestrel.>", "$JS.FC.KESTREL_a.kestrel.*", "$JS.FC.KESTREL_a.kestrel.a b",
        "$JS.ACK.KESTREL_b.kestrel.1.70.9.1.2", "$JS.ACK.KESTREL_a.other.1.70.9.1.2",
        "$JS.ACK.KESTREL_a.kestrel.1.70.9.1", "$JS.ACK.KESTREL_a.kestrel.1.70.x9.1.2",
        "$JS.ACK.KESTREL_a.kestrel.1.70.9.1.*", "$JS.ACK.KESTREL_a.kestrel.1.70.9.1.2.3",
        "$JS.ACK.a.>.KESTREL_a.kestrel.1.70.9.1.2",
        "$JS.ACK.KESTREL_a.kestrel.1.70.99999999999999999999.1.2"}) {
    EXPECT_FALSE(subjects.readDelivery(foreign)) << foreign;
    EXPECT_FALSE(subjects.isFlowControl(foreign)) << foreign;
  }
}

class PublishLedgerTest : public testing::Test {
 protected:
  PublishLedgerTest() { nats_Open(-1); }  // the client frees messages on a thread of its own

  void add(std::uint64_t sequence, std::uint64_t bytes = 10) {
    natsMsg* message = nullptr;
    ASSERT_EQ(natsMsg_Create(&message, std::to_string(sequence).c_str(), nullptr, nullptr, 0), NATS_OK);
    _ledger.add({sequence, {message, natsMsg_Destroy}, bytes, _now, {}});
  }
  /// The numbers of what is to be published now.
  std::string publish() {
    std::string numbers;
    while (const auto message = _ledger.next(_now))
      numbers += natsMsg_GetSubject(message.get()) + std::string(" ");
    return numbers;
  }

  PublishLedger _ledger{{.bytes = 1000, .inFlightBytes = 30, .inFlight = 5}};
  TimePoint _now{seconds(1000)};
};

TEST_F(PublishLedgerTest, PublishesInOrderWithinItsWindow) {
  for (std::uint64_t i = 1; i <= 5; ++i) add(i);
  EXPECT_EQ(publish(), "1 2 3 ");
  EXPECT_TRUE(_ledger.stored(2));
  EXPECT_EQ(publish(), "4 ");
  EXPECT_FALSE(_ledger.stored(2)) << "a second answer";
  add(6, 500);
  EXPECT_TRUE(_ledger.stored(1) && _ledger.stored(3) && _ledger.stored(4));
  EXPECT_EQ(publish(), "5 ");
  EXPECT_TRUE(_ledger.stored(5));
  EXPECT_EQ(publish(), "6 ") << "one message always fits";
  EXPECT_FALSE(_ledger.hasRoom(501));
}

TEST_F(PublishLedgerTest, BeginsAgainWithTheOldestAfterEveryFault) {
  for (std::uint64_t i = 1; i <= 3; ++i) add(i);
  publish();
  EXPECT_TRUE(_ledger.stored(1));
  _ledger.restart();
  EXPECT_EQ(publish(), "2 3 ");
  _ledger.failed(3, "no room", _now);
  EXPECT_EQ(publish(), "") << "not at once";
  _now += milliseconds(250);
  EXPECT_EQ(publish(), "2 3 ");
  (void)_ledger.tick(_now);
  _now += milliseconds(4900);
  (void)_ledger.tick(_now);
  EXPECT_EQ(publish(), "") << "the answer may still come";
  _now += milliseconds(100);
  (void)_ledger.tick(_now);
  EXPECT_EQ(publish(), "2 3 ");
}

TEST_F(PublishLedgerTest, GivesUpWhatWasTriedLongEnoughAndNothingElse) {
  add(1);
  _now += seconds(1);
  add(2);
  _now += seconds(118);
  EXPECT_TRUE(_ledger.tick(_now).empty());
  _now += seconds(1);
  const auto given = _ledger.tick(_now);
  ASSERT_EQ(given.size(), 1U);
  EXPECT_EQ(given[0].sequence, 1U);
  EXPECT_EQ(publish(), "2 ");
  EXPECT_EQ(_ledger.bytes(), 10U);
}

class ResequencerTest : public testing::Test {
 protected:
  std::string out() {
    std::string text;
    while (const auto item = _order.next()) text += *item + " ";
    return text;
  }

  Resequencer<std::string> _order{{.patience = seconds(10),
                                   .waitingBytes = 20,
                                   .cost = [](const std::string& item) { return std::uint64_t{item.size()}; },
                                   .producers = 3}};
  TimePoint _now{seconds(1000)};
};

TEST_F(ResequencerTest, WhatOvertookWaitsForWhatIsMissing) {
  _order.accept(1, 4, 5, "5", _now);
  EXPECT_EQ(out(), "5 ") << "what came before the first one was for somebody else";
  _order.accept(1, 6, 7, "7", _now);
  _order.accept(1, 8, 0, "gone", _now);
  _order.accept(2, 0, 1, "other", _now);
  EXPECT_EQ(out(), "other ");
  _order.accept(1, 7, 8, "8", _now);
  _order.accept(1, 5, 6, "6", _now);
  EXPECT_EQ(out(), "6 7 8 gone ");
  _order.accept(1, 6, 7, "copy of 7", _now);
  EXPECT_EQ(out(), "copy of 7 ");
}

TEST_F(ResequencerTest, RefusedNumbersAreNotMissing) {
  _order.accept(1, 0, 1, "1", _now);
  _order.accept(1, 1, 4, "4, after two refused ones", _now);
  EXPECT_EQ(out(), "1 4, after two refused ones ");
}

TEST_F(ResequencerTest, GapIsGivenUpInTimeOrWhenNothingOlderCanCome) {
  _order.accept(1, 0, 1, "1", _now);
  _order.accept(1, 2, 3, "3", _now);
  _order.tick(_now + milliseconds(9999));
  EXPECT_EQ(out(), "1 ");
  _order.tick(_now + seconds(10));
  EXPECT_EQ(out(), "3 ");
}

TEST_F(ResequencerTest, WhatWasRemovedIsNotWaitedForWhicheverSideOfTheRemovalShowsIt) {
  for (const std::uint64_t producer : {1U, 2U}) _order.accept(producer, 0, 1, "1", _now);
  _order.accept(1, 2, 3, "3", _now);
  _order.giveUpGaps();
  EXPECT_EQ(out(), "1 1 3 ");
  _order.accept(1, 6, 7, "7", _now);
  _order.accept(2, 4, 5, "5", _now);
  EXPECT_EQ(out(), "7 5 ");
  _order.accept(1, 8, 9, "9", _now);
  EXPECT_EQ(out(), "") << "only the first gap is excused";
  _order.accept(1, 7, 8, "8", _now);
  EXPECT_EQ(out(), "8 9 ");
}

TEST_F(ResequencerTest, NeitherWhatWaitsNorTheNumberOfProducersGrowsWithoutBound) {
  _order.accept(1, 0, 1, "1", _now);
  _order.accept(1, 2, 3, "ten bytes.", _now);
  _order.accept(1, 3, 4, "ten bytes!", _now);
  EXPECT_EQ(out(), "1 ");
  _order.accept(1, 4, 5, "5", _now);
  EXPECT_EQ(out(), "ten bytes. ten bytes! 5 ");
  _order.accept(1, 6, 7, "waits", _now);
  for (std::uint64_t other = 2; other < 99; ++other) {
    _order.accept(other, 0, 1, "1", _now += seconds(1));
    EXPECT_EQ(out(), "1 ");
    ASSERT_LE(_order.producersKnown(), 3U);
  }
  _order.accept(98, 2, 3, "3", _now);
  EXPECT_EQ(out(), "") << "the newest one is known";
  _order.accept(1, 5, 6, "6", _now);
  EXPECT_EQ(out(), "6 waits ");
}

TEST(ArrivalClockTest, StandsStillForWhatWaitsAndMovesOnceThatIsDone) {
  const TimePoint start{seconds(100)};
  ArrivalClock clock(start);
  const auto reached = [&](seconds now, std::uint64_t waiting) {
    clock.advance(start + now, waiting);
    return clock.reached() - start;
  };
  EXPECT_EQ(reached(seconds(20), 2), seconds(0)) << "two came while nobody looked";
  EXPECT_EQ(reached(seconds(40), 5), seconds(0));
  EXPECT_EQ(reached(seconds(60), 4), seconds(20)) << "those two are done";
  EXPECT_EQ(reached(seconds(61), 0), seconds(61));
}

TEST(BackoffTest, DoublesUpToItsCapLessAtMostAHalf) {
  for (int attempt = 1; attempt < 40; ++attempt) {
    const auto most = std::min<milliseconds::rep>(2000, 100LL << std::min(attempt - 1, 10));
    const auto wait = backoff(milliseconds(100), attempt).count();
    EXPECT_GE(wait, most / 2);
    EXPECT_LE(wait, most);
  }
  EXPECT_GE(backoff(milliseconds(5000), 3).count(), 2500);
}

}  // namespace
}  // namespace kestrel::streams
