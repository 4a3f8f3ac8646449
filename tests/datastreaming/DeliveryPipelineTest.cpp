#include "delivery/DeliveryPipeline.hpp"

#include <gmock/gmock.h>

#include <sstream>
#include <stdexcept>
#include <utility>

#include "Frames.hpp"

namespace kestrel::streams {
namespace {

using datastreaming::Handling;
using testing::ElementsAre;
using testing::EndsWith;

/// Writes down the sequence number of the frame that it stands for when it is settled.
struct Note final : Receipt {
  Note(std::vector<std::uint64_t>& all, std::uint64_t number) : settled(all), sequence(number) {}
  void settle() noexcept override { settled.push_back(sequence); }
  std::vector<std::uint64_t>& settled;
  const std::uint64_t sequence;
};

class DeliveryPipelineTest : public testing::Test {
 protected:
  DeliveryPipelineTest() {
    _pipeline.setDataCallback([this](const auto*, auto, const auto&, auto&) {
      if (std::exchange(_throwNext, false)) throw std::runtime_error("cannot read it");
      return std::exchange(_answer, Handling::done);
    });
  }

  /// Words of frameOf().
  void accept(const std::string& frames) {
    std::istringstream words(frames);
    for (std::string word; words >> word;) {
      Frame frame = frameOf(word, {});
      if (_stored) frame.receipt = std::make_unique<Note>(_settled, frame.stamp.sequence);
      _pipeline.accept(std::move(frame));
    }
  }
  [[nodiscard]] datastreaming::StreamStatistics counted() const { return _context->counters.snapshot("s"); }

  std::shared_ptr<StreamContext> _context =
      std::make_shared<StreamContext>("s", std::make_shared<ErrorReporter>());
  std::vector<std::uint64_t> _settled;
  bool _stored = true, _throwNext = false;
  Handling _answer = Handling::done;
  DeliveryPipeline _pipeline{_context, std::make_shared<ErrorOutlet>(_context)};
};

TEST_F(DeliveryPipelineTest, SettlesTheReceiptsOfAPayloadWhenAllOfItHasBeenHandedOverOrGivenUp) {
  accept("A1 A2/2.0 A2/2.0");
  EXPECT_THAT(_settled, ElementsAre(1)) << "a copy settles nothing before the original is settled";
  accept("A3/2.1! A3/2.1!");
  EXPECT_THAT(_settled, ElementsAre(1, 2, 3, 3)) << "a copy of a settled frame is settled again";
  EXPECT_EQ(counted().copies, 2U);
  accept("A4/4.0 A6/4.2!");  // number 5 is missing
  EXPECT_THAT(_settled, ElementsAre(1, 2, 3, 3, 4, 6)) << "it must not come again";
}

TEST_F(DeliveryPipelineTest, LeavesUnsettledWhatNobodyTook) {
  _answer = Handling::notTaken;
  accept("A1");
  _answer = Handling::notTaken;
  accept("A2/2.0 A3/2.1! A4");
  _pipeline.close();
  accept("A5 A6/6.0");
  EXPECT_THAT(_settled, ElementsAre(4));
  EXPECT_EQ(counted().messagesReceived, 1U);
  EXPECT_EQ(counted().lost, 0U) << "it is stored";
}

TEST_F(DeliveryPipelineTest, CountsAndReportsWhatNobodyTookAndIsStoredNowhere) {
  _stored = false;
  _answer = Handling::notTaken;
  accept("A1");
  _pipeline.close();
  accept("A2/2.0 A3/2.1! A4/4.0");
  _pipeline.abandon(10);
  EXPECT_EQ(counted().lost, 14U);
  EXPECT_EQ(counted().messagesReceived, 0U);
  EXPECT_THAT(counted().lastError, EndsWith("messages lost: 14"));
}

TEST_F(DeliveryPipelineTest, FailureLosesItsPayloadOnlyAndCountsItsPieces) {
  _throwNext = true;
  accept("A1/1.0 A2/1.1!");
  EXPECT_THAT(counted().lastError, EndsWith("which is lost: cannot read it"));
  accept("A3/3.0");
  _answer = Handling::failed;
  accept("A4 A5/3.1!");  // the payload was begun before that failure
  EXPECT_EQ(counted().lost, 3U);
  EXPECT_EQ(counted().messagesReceived, 2U);
  EXPECT_THAT(_settled, ElementsAre(1, 2, 4, 3, 5));
}

}  // namespace
}  // namespace kestrel::streams
