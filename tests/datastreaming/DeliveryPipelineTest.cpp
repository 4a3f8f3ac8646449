#include "transports/shared/DeliveryPipeline.hpp"

#include <gmock/gmock.h>

#include <kestrel/datastreaming/Keys.hpp>
#include <stdexcept>
#include <utility>

namespace kestrel::streams {
namespace {

using datastreaming::AttributeMap;
using datastreaming::Handling;
using datastreaming::MessageAttributes;
using testing::ElementsAre;
using testing::EndsWith;

/// Writes down the sequence number of the frame that it stands for when it is settled.
class Note final : public Receipt {
 public:
  Note(std::vector<std::uint64_t>& settled, std::uint64_t sequence)
      : _settled(settled), _sequence(sequence) {}
  void settle() noexcept override { _settled.push_back(_sequence); }

 private:
  std::vector<std::uint64_t>& _settled;
  std::uint64_t _sequence;
};

class DeliveryPipelineTest : public testing::Test {
 protected:
  DeliveryPipelineTest() {
    _pipeline.setDataCallback(
        [this](const std::uint8_t*, std::uint64_t size, const std::string&, AttributeMap&) {
          _sizes.push_back(size);
          if (std::exchange(_throwNext, false)) throw std::runtime_error("no");
          return std::exchange(_answer, Handling::done);
        });
  }

  void plain(std::uint64_t sequence) {
    accept({.producer = 1, .sequence = sequence, .payload = sequence}, {});
  }
  void piece(std::uint64_t sequence, std::uint32_t index, bool last, std::uint64_t producer = 1) {
    accept({.producer = producer,
            .sequence = sequence,
            .payload = 100,
            .chunkIndex = index,
            .chunked = true,
            .last = last},
           {{MessageAttributes::CompressionType, "chunk"},
            {MessageAttributes::UnCompressedSize, last ? 0L : 9L}});
  }
  void accept(const Stamp& stamp, const AttributeMap& attributes) {
    Frame frame;
    frame.stamp = stamp;
    frame.data = _bytes;
    frame.size = sizeof _bytes;
    frame.attributes = attributes;
    if (_stored) frame.receipt = std::make_unique<Note>(_settled, stamp.producer * 1000 + stamp.sequence);
    _pipeline.accept(std::move(frame));
  }
  [[nodiscard]] datastreaming::StreamStatistics counted() const { return _context->counters.snapshot("s"); }

  const std::uint8_t _bytes[3] = {1, 2, 3};
  std::shared_ptr<StreamContext> _context =
      std::make_shared<StreamContext>("s", std::make_shared<ErrorReporter>());
  std::vector<std::uint64_t> _sizes;
  std::vector<std::uint64_t> _settled;
  bool _stored = true;
  bool _throwNext = false;
  Handling _answer = Handling::done;
  DeliveryPipeline _pipeline{_context, std::make_shared<ErrorOutlet>(_context)};
};

TEST_F(DeliveryPipelineTest, SettlesTheReceiptsOfAPayloadWhenAllOfItHasBeenHandedOver) {
  plain(1);
  EXPECT_THAT(_settled, ElementsAre(1001));
  piece(2, 0, false);
  piece(2, 0, false);  // a copy settles nothing before the original is settled
  EXPECT_THAT(_settled, ElementsAre(1001));
  piece(3, 1, true);
  piece(3, 1, true);  // one of a settled frame is settled again
  EXPECT_THAT(_settled, ElementsAre(1001, 1002, 1003, 1003));
  EXPECT_THAT(_sizes, ElementsAre(3, 6));
  EXPECT_EQ(counted().payloadsReceived, 2U);
  EXPECT_EQ(counted().messagesReceived, 3U);
  EXPECT_EQ(counted().copies, 2U);
}

TEST_F(DeliveryPipelineTest, SettlesWhatWasGivenUpSoThatItDoesNotComeAgain) {
  piece(1, 0, false);
  piece(1, 0, false, 2);
  piece(3, 2, true);  // number 2 is missing
  EXPECT_THAT(_settled, ElementsAre(1001, 1003));
  _pipeline.producerVanished(2);
  EXPECT_THAT(_settled, ElementsAre(1001, 1003, 2001));
}

TEST_F(DeliveryPipelineTest, LeavesUnsettledWhatNobodyTook) {
  _answer = Handling::notTaken;
  plain(1);
  _answer = Handling::notTaken;
  piece(2, 0, false);
  piece(3, 1, true);
  plain(4);
  EXPECT_THAT(_settled, ElementsAre(1004));
  _pipeline.close();
  plain(5);
  piece(6, 0, false);
  EXPECT_THAT(_settled, ElementsAre(1004));
  EXPECT_EQ(counted().messagesReceived, 1U);
  EXPECT_EQ(counted().lost, 0U) << "it is stored";
}

TEST_F(DeliveryPipelineTest, CountsAndReportsWhatNobodyTookAndIsStoredNowhere) {
  _stored = false;
  _answer = Handling::notTaken;
  plain(1);
  _pipeline.close();
  piece(2, 0, false);
  piece(3, 1, true);
  piece(4, 0, false);
  _pipeline.abandon(10);
  EXPECT_EQ(counted().lost, 14U);
  EXPECT_EQ(counted().messagesReceived, 0U);
  EXPECT_THAT(counted().lastError, EndsWith("messages lost: 14"));
}

TEST_F(DeliveryPipelineTest, FailureLosesThePayloadOnlyAndCountsItsPieces) {
  _throwNext = true;
  piece(1, 0, false);
  piece(2, 1, true);
  _answer = Handling::failed;
  plain(3);
  plain(4);
  EXPECT_EQ(counted().lost, 3U);
  EXPECT_EQ(counted().messagesReceived, 1U);
  EXPECT_THAT(_settled, ElementsAre(1001, 1002, 1003, 1004));
}

}  // namespace
}  // namespace kestrel::streams
