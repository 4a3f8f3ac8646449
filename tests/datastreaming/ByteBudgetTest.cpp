#include "transports/shared/ByteBudget.hpp"

#include <gtest/gtest.h>

namespace kestrel::streams {
namespace {

TEST(ByteBudget, KeepsTheReserveForTheProducerOfThePayloadInProgress) {
  ByteBudget budget(1000, 200);
  const ByteBudget::Charge others(budget, 900);
  budget.favour(7);
  EXPECT_TRUE(budget.hasRoom(100, 8));
  EXPECT_FALSE(budget.hasRoom(101, 8));
  EXPECT_TRUE(budget.hasRoom(300, 7));
  EXPECT_FALSE(budget.hasRoom(301, 7));
}

TEST(ByteBudget, GivesAChargeBackOnceHoweverOftenItWasMoved) {
  ByteBudget budget(1000);
  {
    ByteBudget::Charge first(budget, 300);
    ByteBudget::Charge second(std::move(first));
    ByteBudget::Charge third;
    third = std::move(second);
    EXPECT_EQ(budget.used(), 300U);
  }
  EXPECT_EQ(budget.used(), 0U);
}

TEST(ByteBudget, CountsWhatAttributesHold) {
  const std::string text(5000, 'x');
  EXPECT_GT(ByteBudget::costOf(0, {}), 0U) << "empty messages take memory too";
  EXPECT_GE(ByteBudget::costOf(10, {{"key", text}}), 5013U);
}

TEST(ByteBudget, RefusesSizesWhoseSumWouldOverflow) {
  ByteBudget budget(1000, 0);
  const ByteBudget::Charge charge(budget, 1);
  EXPECT_FALSE(budget.hasRoom(UINT64_MAX, 1));
}

}  // namespace
}  // namespace kestrel::streams
