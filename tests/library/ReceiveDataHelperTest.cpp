#include "remote_connectivity/asyncio/util/ReceiveDataHelper.hpp"

#include "LogCapture.hpp"

namespace library_test {

const std::string tag = "ReceiveDataHelper:assembleAndProcess: ";

class ReceiveDataHelperTest : public testing::Test {
 protected:
  /// Feeds one message; gives the attributes as they are afterwards.
  AttributeMap feed(const std::string& bytes, AttributeMap attributes) {
    const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    helper.assembleAndProcess(data, bytes.size(), "id of " + bytes, attributes);
    return attributes;
  }
  AttributeMap feedChunk(const std::string& bytes, const AttributeMap::mapped_type& next) {
    return feed(bytes, {{"COMPRESSIONTYPE", std::string("chunk")}, {"UNCOMPRESSEDSIZE", next}, {"user", 1L}});
  }

  LogCapture log;
  Lines payloads;
  std::string lastId;
  AttributeMap lastAttributes;
  bool failing = false;
  ReceiveDataHelper helper{
      [this](const std::uint8_t* data, std::uint64_t size, const std::string& id, AttributeMap attributes) {
        payloads.emplace_back(data, data + size);
        lastId = id;
        lastAttributes = std::move(attributes);
        if (failing) throw std::runtime_error("callback");
      }};
};

TEST_F(ReceiveDataHelperTest, PassesPlainMessagesOnEvenBetweenChunks) {
  feedChunk("a", 1L);
  const AttributeMap attributes{{"COMPRESSIONTYPE", std::string("zip")}, {"UNCOMPRESSEDSIZE", 9L}};
  EXPECT_EQ(feed("plain", attributes), attributes);
  EXPECT_EQ(lastAttributes, attributes);
  EXPECT_EQ(lastId, "id of plain");
  feedChunk("b", 0L);
  EXPECT_THAT(payloads, ElementsAre("plain", "ab"));
}

TEST_F(ReceiveDataHelperTest, JoinsChunksAndTellsWhatItDoes) {
  feedChunk("abc", 3L);
  EXPECT_THAT(payloads, IsEmpty());
  EXPECT_EQ(feedChunk("g", 0L), lastAttributes) << "the caller's map keeps the mark";
  EXPECT_THAT(payloads, ElementsAre("abcg"));
  EXPECT_EQ(lastId, "id of g");
  EXPECT_EQ(lastAttributes, (AttributeMap{{"UNCOMPRESSEDSIZE", 0L}, {"user", 1L}}));
  EXPECT_THAT(log.texts("asyncio::util::ReceiveDataHelper", Severity::setup),
              ElementsAre(tag + "Got data chunk, size: 3, msgID: id of abc, _msgChunks.size before adding: 0",
                          tag + " nextChunkSize: 3",
                          tag + "Got data chunk, size: 1, msgID: id of g, _msgChunks.size before adding: 3",
                          tag + " nextChunkSize: 0",
                          tag + " Doesn't have more chunks. Calling callback for data size: 4"));
}

TEST_F(ReceiveDataHelperTest, EndsAPayloadAtZeroBelowZeroAndWithoutTheKey) {
  feedChunk("a", 0L);
  feedChunk("b", 5L);
  feedChunk("c", -1L);
  feed("d", {{"COMPRESSIONTYPE", std::string("chunk")}});
  EXPECT_THAT(payloads, ElementsAre("a", "bc", "d"));
}

TEST_F(ReceiveDataHelperTest, RefusesAnIntegerMarkBeforeAndATextSizeAfterItTookTheBytes) {
  EXPECT_THROW((void)helper.isChunkAssembleNeeded({{"COMPRESSIONTYPE", 1L}}), std::bad_variant_access);
  EXPECT_THROW(feed("x", {{"COMPRESSIONTYPE", 1L}}), std::bad_variant_access);
  EXPECT_THROW(feedChunk("y", std::string("1")), std::bad_variant_access);
  feedChunk("b", 0L);
  EXPECT_THAT(payloads, ElementsAre("yb"));
}

TEST_F(ReceiveDataHelperTest, KeepsTheBytesOfAPayloadWhoseCallbackFailed) {
  failing = true;
  EXPECT_THROW(feedChunk("a", 0L), std::runtime_error);
  failing = false;
  feedChunk("b", 0L);
  feedChunk("c", 0L);
  EXPECT_THAT(payloads, ElementsAre("a", "ab", "c"));
}

}  // namespace library_test
