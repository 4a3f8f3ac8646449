#include <gtest/gtest.h>

#include <cctype>

#include "Waiting.hpp"
#include "delivery/ErrorReporter.hpp"
#include "kestrel/callbacks/ShortWait.hpp"
#include "sequencing/ProducerStamper.hpp"

namespace kestrel::streams {
namespace {

TEST(ErrorReporter, DropsTasksPastItsBound) {
  Door busy, go;
  int ran = 0;
  {
    ErrorReporter reporter(3);
    reporter.post([&] {
      busy.open();
      go.pass("the tasks to be queued");
    });
    busy.pass("the first task");
    for (int i = 0; i < 10; ++i) reporter.post([&] { ++ran; });
    go.open();
  }  // which waits for the tasks that were taken
  EXPECT_EQ(ran, 3);
}

TEST(ShortWaitPolicy, LooksWhereWaitsAreShortUnlessItHasLookedInVain) {
  using namespace std::chrono_literals;
  callbacks::ShortWaitPolicy policy;
  const auto waits = [&](int times, auto took, bool looked, bool found) {
    for (int i = 0; i < times; ++i) policy.ended(took, looked, found);
    return policy.mayLook();
  };
  EXPECT_FALSE(policy.mayLook()) << "of waits to come nothing is known";
  EXPECT_TRUE(waits(100, 30us, false, false));
  EXPECT_TRUE(waits(3, 30us, true, false) && waits(1, 1us, true, true) && waits(3, 30us, true, false));
  EXPECT_FALSE(waits(1, 30us, true, false));
  EXPECT_FALSE(waits(policy.restingWaits - 1, 30us, false, false));
  EXPECT_TRUE(waits(1, 30us, false, false));
  EXPECT_FALSE(waits(2, 50s, false, false));
}

/// The fates of a producer's messages: plain ones 'm', pieces 'p', last pieces 'l', faulty ones 'f', of which
/// capitals are refused. For an accepted one: how many refused before it it tells of, 'x' if it abandons.
std::string fatesOf(const std::string& messages) {
  ProducerStamper stamper(7);
  std::string fates;
  for (const char letter : messages) {
    const int kind = std::tolower(letter);
    const Stamp stamp = stamper.next({.chunk = kind == 'p' || kind == 'l', .last = kind != 'p', .fault = {}});
    if (stamper.broken(stamp)) {
      stamper.refused(stamp);
      fates += "broken ";
    } else if (kind != letter) {
      fates += stamper.refused(stamp, kind == 'f') ? "breaks " : "refused ";
    } else {
      stamper.accepted(stamp);
      fates += std::to_string(stamp.refusedBefore) + (stamp.abandons ? "x " : " ");
    }
  }
  return fates;
}

TEST(ProducerStamper, RefusalIsToldOnceAndBreaksTheRestOfItsPayloadButNothingElse) {
  EXPECT_EQ(fatesOf("mMMmm"), "0 refused refused 2 0 ");
  EXPECT_EQ(fatesOf("pPpmmlp"), "0 breaks broken 2x 0 broken 1 ");
  EXPECT_EQ(fatesOf("Plm"), "refused broken 2 ") << "nothing of the payload went out, so none is abandoned";
  EXPECT_EQ(fatesOf("pFlm"), "0 breaks broken 2x ") << "the faulty one may have been meant as a piece";
}

}  // namespace
}  // namespace kestrel::streams
