#include <gmock/gmock.h>

#include "transports/StreamToken.hpp"
#include "transports/nats/durable/ReaderSubjects.hpp"
#include "transports/nats/durable/StoreReply.hpp"
#include "transports/nats/wire/MessageHeaders.hpp"
#include "transports/nats/wire/OutgoingMessage.hpp"
#include "transports/nats/wire/SubjectNames.hpp"

namespace kestrel::streams {
namespace {

using testing::HasSubstr;

TEST(SubjectNamesTest, TokensAreWrittenAsTheFormatSays) {
  EXPECT_EQ(makeToken("Name-9_2E.*\xc3"), "Name-9_5F2E_2E_2A_C3");
  EXPECT_THAT(makeToken(std::string(500, 'x')), testing::MatchesRegex("_h[0-9a-f]{64}"));
}

TEST(MessageHeadersTest, StampsAndNewsAreWrittenAsTheFormatSays) {
  const Stamp stamp{.producer = 0xfedcba9876543210,
                    .sequence = 18446744073709551615U,
                    .payload = 5,
                    .chunkIndex = 4294967295U,
                    .refusedBefore = 3,
                    .chunked = true,
                    .last = false,
                    .abandons = true,
                    .age = 17,
                    .whole = 18446744073709551615U};
  const std::string text =
      "1.fedcba9876543210.18446744073709551615.5.4294967295.3.cmaw18446744073709551615.17";
  EXPECT_EQ(writeStamp(stamp), text);
  EXPECT_EQ(writeStamp(readStamp(text.c_str()).value()), text);
  for (const char* damaged :
       {"", "2.1.1.1.0.0.", "1.0.1.1.0.0.", "1.1.0.1.0.0.", "1.1.1.1.0.0", "1.1.1.1.0.0.x",
        "1.1.1.1.99999999999.0.", "1.1.1.1.0.0.c.-1", "1.1.1.1.0.0.cw", "1.1.1.1.0.0.cw0"})
    EXPECT_FALSE(readStamp(damaged)) << damaged;
  for (const char* news : {"gone.ff.7", "abandoned.1.18446744073709551615.0", "idle.a.3.250"})
    EXPECT_EQ(writeEvent(readEvent(news).value()), news);
  EXPECT_EQ(readEvent("idle.a.3.250")->kind, ProducerEvent::Kind::idle);
  for (const char* damaged : {"", "left.1.1", "gone.0.1", "gone.1.", "gone.1.1x", "gone.1.1.-1"})
    EXPECT_FALSE(readEvent(damaged)) << damaged;
}

TEST(MessageHeadersTest, AttributesKeepTheirTypeAndEveryByte) {
  const std::pair<datastreaming::AttributeValue, std::string> cases[] = {
      {-9223372036854775807L - 1, "i-9223372036854775808"},
      {"~100 %\r\n\x7f\xff", "s~100%20%25%0D%0A%7F%FF"}};
  for (const auto& [value, text] : cases) {
    EXPECT_EQ(writeAttribute(value), text);
    EXPECT_EQ(readAttribute(text), value);
  }
  for (const char* damaged : {"", "x1", "i", "i1x", "s%1", "s%zz"})
    EXPECT_FALSE(readAttribute(damaged)) << damaged;
}

TEST(OutgoingMessageTest, HeadersCountAgainstTheServersLimit) {
  const std::string subject = "s", none;
  const std::uint8_t bytes[1000]{};
  const auto make = [&](std::uint64_t limit) {
    return makeMessage({subject, none, {.producer = 1, .sequence = 1, .payload = 1}, bytes, 1000, {}}, limit);
  };
  const auto size = 1000 + std::string("NATS/1.0\r\nKestrel-Stamp: 1.1.1.1.0.0.\r\n\r\n").size();
  EXPECT_EQ(std::get<OutgoingMessage>(make(size)).wireSize, size);
  EXPECT_THAT(std::get<std::string>(make(size - 1)), HasSubstr("max_payload of " + std::to_string(size - 1)));
}

TEST(StoreReplyTest, NumberOrReasonIsRead) {
  EXPECT_EQ(readStoreReply(R"({"stream":"KESTREL_a", "seq":17,"duplicate": true})").sequence, 17U);
  EXPECT_EQ(readStoreReply(R"({"message":{"data":"\"seq\":3","seq":18}})").sequence, 18U);
  EXPECT_EQ(readStoreReply(R"({"error":{"code":503,"description":"no room"},"stream":"s","seq":0})").error,
            "no room");
  for (const char* odd : {R"({"stream":"\"seq\":5"})", R"({"seq":-1})", R"({"seq":18446744073709551616})",
                          "hello", R"({"error":3,"seq":4})"})
    EXPECT_THAT(readStoreReply(odd).error, HasSubstr("not understood")) << odd;
}

TEST(ReaderSubjectsTest, OnlyWhatBelongsToThisReaderIsAnswered) {
  const ReaderSubjects subjects(SubjectNames("a"));
  for (const char* reply : {"$JS.ACK.KESTREL_a.kestrel.1.70.9.1795387144016166356.2",
                            "$JS.ACK._.acc.KESTREL_a.kestrel.1.70.9.1795387144016166356.2.xYz"}) {
    const auto numbers = subjects.readDelivery(reply);
    ASSERT_TRUE(numbers) << reply;
    EXPECT_EQ(numbers->stored, 70U);
    EXPECT_EQ(numbers->count, 9U);
  }
  for (const char* reply : {"$JS.FC.KESTREL_a.kestrel.YsEw", "$JS.FC.hub.acc.KESTREL_a.kestrel.YsEw"})
    EXPECT_TRUE(subjects.isFlowControl(reply)) << reply;
  for (const char* foreign : {"$JS.API.STREAM.DELETE.KESTREL_a", "$JS.FC.KESTREL_b.kestrel.YsEw",
                              "$JS.ACK.KESTREL_a.other.1.70.9.1.2", "$JS.ACK.KESTREL_a.kestrel.1.70.x9.1.2"})
    EXPECT_FALSE(subjects.readDelivery(foreign) || subjects.isFlowControl(foreign)) << foreign;
}

}  // namespace
}  // namespace kestrel::streams
