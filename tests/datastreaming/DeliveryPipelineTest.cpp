#include "transports/shared/DeliveryPipeline.hpp"

#include <gmock/gmock.h>

#include <kestrel/datastreaming/Keys.hpp>
#include <stdexcept>
#include <utility>

namespace kestrel::streams {
namespace {

using datastreaming::AttributeMap;
using datastreaming::MessageAttributes;
using testing::ElementsAre;
using testing::IsEmpty;

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
          _roomInside = _budget->hasRoom(10, 1);
          if (std::exchange(_throwNext, false)) throw std::runtime_error("no");
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
    auto receipt = std::make_unique<Note>(_settled, stamp.producer * 1000 + stamp.sequence);
    _pipeline.accept({stamp, {}, _bytes, sizeof _bytes, attributes, {}, {}, std::move(receipt)});
  }

  const std::uint8_t _bytes[3] = {1, 2, 3};
  std::shared_ptr<StreamContext> _context =
      std::make_shared<StreamContext>("s", std::make_shared<ErrorReporter>());
  std::vector<std::uint64_t> _sizes;
  std::vector<std::uint64_t> _settled;
  bool _throwNext = false;
  bool _roomInside = false;
  std::shared_ptr<ByteBudget> _budget = std::make_shared<ByteBudget>(0, 10);
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
  EXPECT_EQ(_context->counters.snapshot("s").payloadsReceived, 2U);
}

TEST_F(DeliveryPipelineTest, SettlesWhatWasGivenUpSoThatItDoesNotComeAgain) {
  piece(1, 0, false);
  piece(1, 0, false, 2);
  piece(3, 2, true);  // number 2 is missing
  EXPECT_THAT(_settled, ElementsAre(1003, 1001));
  _pipeline.producerVanished(2);
  EXPECT_THAT(_settled, ElementsAre(1003, 1001, 2001));
}

TEST_F(DeliveryPipelineTest, LeavesUnsettledWhatAClosedConsumerDidNotGet) {
  piece(1, 0, false);
  _pipeline.close();
  piece(2, 1, true);
  EXPECT_THAT(_settled, IsEmpty());
  EXPECT_EQ(_sizes.size(), 1U);
}

TEST_F(DeliveryPipelineTest, FailureOnAPieceEndsThePayloadForTheReceiver) {
  piece(1, 0, false);
  _throwNext = true;
  piece(2, 1, false);
  piece(3, 2, true);
  plain(4);
  EXPECT_THAT(_sizes, ElementsAre(3, 3, 0, 3));
  EXPECT_EQ(_context->counters.snapshot("s").lost, 2U);
  EXPECT_THAT(_settled, ElementsAre(1001, 1002, 1003, 1004));
}

TEST_F(DeliveryPipelineTest, TellsTheBudgetWhosePayloadIsInProgressBeforeTheCallbackRuns) {
  _pipeline.setBudget(_budget);
  piece(1, 0, false);
  EXPECT_TRUE(_roomInside);
}

}  // namespace
}  // namespace kestrel::streams
