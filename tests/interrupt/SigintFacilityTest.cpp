#include "kestrel/interrupt/SigintFacility.hpp"

#include <gtest/gtest.h>

#include <csignal>

namespace kestrel::interrupt {
namespace {

volatile std::sig_atomic_t hostsSignals = 0;

TEST(SigintFacility, RaisesAPendingSignalExactlyOnceAndOnlyOnItsThread) {
  EXPECT_FALSE(interruptsObserved());
  EXPECT_NO_THROW(raiseInterrupt());
  setUserInterruptFacility(std::make_shared<SigintFacility>());
  EXPECT_THROW(SigintFacility(), std::logic_error) << "which must not take the handler of the first away";
  std::raise(SIGINT);
  std::jthread([] { EXPECT_FALSE(interruptsObserved()); }).join();
  EXPECT_TRUE(interruptsObserved() && interruptPending());
  EXPECT_THROW(raiseInterrupt(), UserInterrupt);
  EXPECT_FALSE(interruptPending());
  EXPECT_NO_THROW(raiseInterrupt());
  setUserInterruptFacility(nullptr);
}

TEST(SigintFacility, GivesTheHostItsHandlerBackAndForgetsItsInterrupt) {
  hostsSignals = 0;
  const auto before = std::signal(SIGINT, [](int) { hostsSignals = hostsSignals + 1; });
  for (int round = 0; round < 2; ++round) {
    const SigintFacility facility;
    EXPECT_FALSE(facility.pending());
    std::raise(SIGINT);
  }
  EXPECT_EQ(hostsSignals, 0);
  std::raise(SIGINT);
  EXPECT_EQ(hostsSignals, 1);
  std::signal(SIGINT, before);
}

}  // namespace
}  // namespace kestrel::interrupt
