#include "kestrel/interrupt/SigintFacility.hpp"

#include <gtest/gtest.h>

#include <csignal>

namespace kestrel::interrupt {
namespace {

class SigintFacilityTest : public testing::Test {
 protected:
  void SetUp() override { setUserInterruptFacility(_facility); }
  void TearDown() override { setUserInterruptFacility(nullptr); }

  std::shared_ptr<SigintFacility> _facility = std::make_shared<SigintFacility>();
};

volatile std::sig_atomic_t hostsSignals = 0;
void hostsHandler(int) {
  hostsSignals = hostsSignals + 1;
}

TEST(UserInterruptFacility, ObservesNothingWhereNoneIsInstalled) {
  EXPECT_FALSE(interruptsObserved());
  EXPECT_FALSE(interruptPending());
  EXPECT_NO_THROW(raiseInterrupt());
}

TEST_F(SigintFacilityTest, RaisesAPendingSignalExactlyOnce) {
  EXPECT_FALSE(interruptPending());
  EXPECT_NO_THROW(raiseInterrupt());
  std::raise(SIGINT);
  EXPECT_TRUE(interruptPending());
  EXPECT_THROW(raiseInterrupt(), UserInterrupt);
  EXPECT_FALSE(interruptPending());
  EXPECT_NO_THROW(raiseInterrupt());
}

TEST_F(SigintFacilityTest, IsObservedOnlyOnTheThreadThatMadeIt) {
  EXPECT_TRUE(interruptsObserved());
  bool observedElsewhere = true;
  std::jthread([&] { observedElsewhere = interruptsObserved(); }).join();
  EXPECT_FALSE(observedElsewhere);
}

TEST_F(SigintFacilityTest, RefusesASecondOne) {
  EXPECT_THROW(SigintFacility(), std::logic_error);
  std::raise(SIGINT);
  EXPECT_TRUE(interruptPending()) << "the failed construction has taken the handler away";
}

TEST(SigintFacility, ForgetsTheInterruptOfTheOneBefore) {
  {
    SigintFacility earlier;
    std::raise(SIGINT);
  }
  EXPECT_FALSE(SigintFacility().pending());
}

TEST(SigintFacility, PutsTheHostsHandlerBack) {
  const auto before = std::signal(SIGINT, hostsHandler);
  hostsSignals = 0;
  {
    SigintFacility facility;
    std::raise(SIGINT);
    EXPECT_EQ(hostsSignals, 0);
  }
  std::raise(SIGINT);
  EXPECT_EQ(hostsSignals, 1);
  std::signal(SIGINT, before);
}

TEST(SigintFacility, LeavesAHandlerThatReplacedItsOwn) {
  const auto before = std::signal(SIGINT, SIG_IGN);
  {
    SigintFacility facility;
    std::signal(SIGINT, hostsHandler);
  }
  EXPECT_EQ(std::signal(SIGINT, before), hostsHandler);
}

}  // namespace
}  // namespace kestrel::interrupt
