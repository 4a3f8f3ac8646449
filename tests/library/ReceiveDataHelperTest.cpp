#include "remote_connectivity/asyncio/util/ReceiveDataHelper.hpp"

#include "TestTools.hpp"

namespace library_test {

class ReceiveDataHelperTest : public testing::Test {
 protected:
  void feed(const std::string& text, AttributeMap attributes) {
    const Bytes bytes(text.begin(), text.end());
    helper.assembleAndProcess(bytes.data(), bytes.size(), "id of " + text, attributes);
  }
  void feedChunk(const std::string& text, const AttributeMap::mapped_type& next) {
    feed(text, {{"COMPRESSIONTYPE", std::string("chunk")}, {"UNCOMPRESSEDSIZE", next}});
  }
  Lines payloads, ids;
  bool failing = false;
  ReceiveDataHelper helper{[this](auto* data, auto size, const auto& id, const AttributeMap&) {
    payloads.emplace_back(data, data + size);
    ids.push_back(id);
    if (failing) throw std::runtime_error("callback");
  }};
};

TEST_F(ReceiveDataHelperTest, EndsAPayloadAtZeroBelowZeroAndWithoutTheKey) {
  feedChunk("a", 0L);
  feedChunk("b", 5L);
  feed("plain", {{"COMPRESSIONTYPE", std::string("zip")}, {"UNCOMPRESSEDSIZE", 9L}});
  feedChunk("c", -1L);
  feed("d", {{"COMPRESSIONTYPE", std::string("chunk")}});
  EXPECT_THAT(payloads, ElementsAre("a", "plain", "bc", "d"));
  EXPECT_EQ(ids.at(2), "id of c");
}

TEST_F(ReceiveDataHelperTest, KeepsTheBytesOfWhatFailsExceptUnderAnIntegerMark) {
  EXPECT_THROW(feed("x", {{"COMPRESSIONTYPE", 1L}}), std::bad_variant_access);
  EXPECT_THROW(feedChunk("y", std::string("1")), std::bad_variant_access);
  feedChunk("b", 0L);
  failing = true;
  EXPECT_THROW(feedChunk("c", 0L), std::runtime_error);
  failing = false;
  feedChunk("d", 0L);
  EXPECT_THAT(payloads, ElementsAre("yb", "c", "cd"));
}

}  // namespace library_test
