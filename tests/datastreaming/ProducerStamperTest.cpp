#include "transports/shared/ProducerStamper.hpp"

#include <gtest/gtest.h>

namespace kestrel::streams {
namespace {

const ChunkMark plain{};
const ChunkMark piece{.chunk = true, .last = false, .fault = {}};
const ChunkMark lastPiece{.chunk = true, .last = true, .fault = {}};

class ProducerStamperTest : public testing::Test {
 protected:
  Stamp accept(const ChunkMark& mark) {
    const Stamp stamp = _stamper.next(mark);
    EXPECT_FALSE(_stamper.broken(stamp));
    _stamper.accepted(stamp);
    return stamp;
  }
  bool refuse(const ChunkMark& mark, bool faulty = false) {
    return _stamper.refused(_stamper.next(mark), faulty);
  }
  bool nextIsBroken(const ChunkMark& mark) {
    const Stamp stamp = _stamper.next(mark);
    const bool broken = _stamper.broken(stamp);
    broken ? (void)_stamper.refused(stamp) : _stamper.accepted(stamp);
    return broken;
  }

  ProducerStamper _stamper{7};
};

TEST_F(ProducerStamperTest, NumbersThePiecesOfAPayloadAndLeavesPlainMessagesOutOfIt) {
  const Stamp first = accept(piece);
  const Stamp between = accept(plain);
  const Stamp last = accept(lastPiece);
  EXPECT_EQ(first.sequence, 1U);
  EXPECT_EQ(last.sequence, 3U);
  EXPECT_EQ(last.payload, first.payload);
  EXPECT_EQ(last.chunkIndex, 1U);
  EXPECT_NE(between.payload, first.payload);
  EXPECT_EQ(accept(lastPiece).chunkIndex, 0U);
}

TEST_F(ProducerStamperTest, TellsHowManyNumbersRefusedMessagesTook) {
  accept(plain);
  refuse(plain);
  refuse(plain);
  const Stamp stamp = accept(plain);
  EXPECT_EQ(stamp.sequence, 4U);
  EXPECT_EQ(stamp.refusedBefore, 2U);
  EXPECT_EQ(accept(plain).refusedBefore, 0U);
}

TEST_F(ProducerStamperTest, RefusesTheRestOfABrokenPayloadAndNothingElse) {
  accept(piece);
  EXPECT_TRUE(refuse(piece)) << "pieces were accepted before";
  EXPECT_TRUE(nextIsBroken(piece));
  EXPECT_FALSE(nextIsBroken(plain));
  EXPECT_TRUE(nextIsBroken(lastPiece));
  EXPECT_FALSE(nextIsBroken(piece));
}

TEST_F(ProducerStamperTest, TellsTheReceiverOnceThatThePayloadIsAbandoned) {
  accept(piece);
  refuse(lastPiece);
  EXPECT_TRUE(accept(plain).abandons);
  EXPECT_FALSE(accept(plain).abandons);
}

TEST_F(ProducerStamperTest, PayloadRefusedFromItsBeginningNeedsNoAbandoning) {
  EXPECT_FALSE(refuse(piece));
  EXPECT_TRUE(nextIsBroken(lastPiece));
  EXPECT_FALSE(accept(plain).abandons);
}

TEST_F(ProducerStamperTest, FaultyMarkBreaksTheOpenPayloadItMayHaveBelongedTo) {
  accept(piece);
  EXPECT_TRUE(refuse(plain, true));
  EXPECT_TRUE(nextIsBroken(lastPiece));
}

}  // namespace
}  // namespace kestrel::streams
