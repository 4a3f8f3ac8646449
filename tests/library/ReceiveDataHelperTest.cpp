#include "remote_connectivity/asyncio/util/ReceiveDataHelper.hpp"

#include <gtest/gtest.h>

#include "LogCapture.hpp"

namespace library_test {
namespace {

using namespace remote_connectivity::asyncio::util;

const std::string tag = "ReceiveDataHelper:assembleAndProcess: ";
const std::string mark = "COMPRESSIONTYPE";
const std::string more = "UNCOMPRESSEDSIZE";

class ReceiveDataHelperTest : public testing::Test {
 protected:
  struct Delivery {
    const std::uint8_t* data;
    std::string bytes;
    std::string messageId;
    AttributeMap attributes;
  };

  /// Feeds one message; gives the attributes as they are afterwards.
  AttributeMap feed(const std::string& bytes, AttributeMap attributes, const std::string& messageId = "id") {
    const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    helper.assembleAndProcess(data, bytes.size(), messageId, attributes);
    return attributes;
  }
  AttributeMap feedChunk(const std::string& bytes, long next, const std::string& messageId = "id") {
    return feed(bytes, {{mark, std::string("chunk")}, {more, next}, {"user", 1L}}, messageId);
  }
  std::vector<std::string> payloads() const {
    std::vector<std::string> result;
    for (const Delivery& delivery : deliveries) result.push_back(delivery.bytes);
    return result;
  }

  LogCapture log;
  std::vector<Delivery> deliveries;
  bool failing = false;
  ReceiveDataHelper helper{[this](const std::uint8_t* data, std::uint64_t size, const std::string& messageId,
                                  AttributeMap attributes) {
    deliveries.push_back({data, std::string(data, data + size), messageId, std::move(attributes)});
    if (failing) throw std::runtime_error("callback");
  }};
};

TEST_F(ReceiveDataHelperTest, PassesAPlainMessageOnUncopied) {
  const std::string bytes = "plain";
  const AttributeMap attributes{{mark, std::string("zip")}, {more, 9L}};
  EXPECT_EQ(feed(bytes, attributes, "m7"), attributes);
  ASSERT_EQ(deliveries.size(), 1U);
  EXPECT_EQ(deliveries[0].data, reinterpret_cast<const std::uint8_t*>(bytes.data()));
  EXPECT_EQ(deliveries[0].bytes, "plain");
  EXPECT_EQ(deliveries[0].messageId, "m7");
  EXPECT_EQ(deliveries[0].attributes, attributes);
}

TEST_F(ReceiveDataHelperTest, JoinsChunksAndTellsWhatItDoes) {
  feedChunk("abc", 3, "m1");
  feedChunk("def", 3, "m2");
  EXPECT_TRUE(deliveries.empty());
  const AttributeMap left = feedChunk("g", 0, "m3");
  ASSERT_EQ(payloads(), std::vector<std::string>{"abcdefg"});
  EXPECT_EQ(deliveries[0].messageId, "m3");
  EXPECT_EQ(deliveries[0].attributes, (AttributeMap{{more, 0L}, {"user", 1L}}));
  EXPECT_EQ(left, deliveries[0].attributes) << "the caller's map keeps the mark";
  EXPECT_EQ(log.texts("asyncio::util::ReceiveDataHelper", Severity::setup),
            (std::vector<std::string>{
                tag + "Got data chunk, size: 3, msgID: m1, _msgChunks.size before adding: 0",
                tag + " nextChunkSize: 3",
                tag + "Got data chunk, size: 3, msgID: m2, _msgChunks.size before adding: 3",
                tag + " nextChunkSize: 3",
                tag + "Got data chunk, size: 1, msgID: m3, _msgChunks.size before adding: 6",
                tag + " nextChunkSize: 0",
                tag + " Doesn't have more chunks. Calling callback for data size: 7",
            }));
}

TEST_F(ReceiveDataHelperTest, EndsAPayloadAtZeroBelowZeroAndWithoutTheKey) {
  feedChunk("a", 0);
  feedChunk("b", 5);
  feedChunk("c", -1);
  feed("d", {{mark, std::string("chunk")}});
  EXPECT_EQ(payloads(), (std::vector<std::string>{"a", "bc", "d"}));
}

TEST_F(ReceiveDataHelperTest, LetsPlainMessagesPassBetweenChunks) {
  feedChunk("a", 1);
  feed("plain", {});
  feedChunk("b", 0);
  EXPECT_EQ(payloads(), (std::vector<std::string>{"plain", "ab"}));
}

TEST_F(ReceiveDataHelperTest, RefusesAnIntegerMarkBeforeItTakesTheBytes) {
  feedChunk("a", 1);
  EXPECT_THROW((void)helper.isChunkAssembleNeeded({{mark, 1L}}), std::bad_variant_access);
  EXPECT_THROW(feed("x", {{mark, 1L}}), std::bad_variant_access);
  feedChunk("b", 0);
  EXPECT_EQ(payloads(), std::vector<std::string>{"ab"});
}

TEST_F(ReceiveDataHelperTest, RefusesATextSizeAfterItTookTheBytes) {
  EXPECT_THROW(feed("x", {{mark, std::string("chunk")}, {more, std::string("1")}}), std::bad_variant_access);
  feedChunk("b", 0);
  EXPECT_EQ(payloads(), std::vector<std::string>{"xb"});
}

TEST_F(ReceiveDataHelperTest, KeepsTheBytesOfAPayloadWhoseCallbackFailed) {
  failing = true;
  EXPECT_THROW(feedChunk("a", 0), std::runtime_error);
  failing = false;
  feedChunk("b", 0);
  feedChunk("c", 0);
  EXPECT_EQ(payloads(), (std::vector<std::string>{"a", "ab", "c"}));
}

}  // namespace
}  // namespace library_test
