#include "transports/nats/durable/PublishLedger.hpp"

#include <gtest/gtest.h>

namespace kestrel::streams {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class PublishLedgerTest : public testing::Test {
 protected:
  PublishLedgerTest() { nats_Open(-1); }  // the client frees messages on a thread of its own

  void add(std::uint64_t sequence, std::uint64_t bytes = 10) {
    natsMsg* message = nullptr;
    ASSERT_EQ(natsMsg_Create(&message, std::to_string(sequence).c_str(), nullptr, nullptr, 0), NATS_OK);
    _ledger.add({sequence, {message, natsMsg_Destroy}, bytes, _now, {}, bytes});
  }
  /// The numbers of what is to be published now.
  std::string publish() {
    std::string numbers;
    while (const auto message = _ledger.next(_now))
      numbers += natsMsg_GetSubject(message.get()) + std::string(" ");
    return numbers;
  }
  /// The numbers of what is given up when so much time has passed.
  std::string expiredAfter(Clock::duration time) {
    std::string numbers;
    for (const auto& entry : _ledger.tick(_now += time)) numbers += std::to_string(entry.sequence) + " ";
    return numbers;
  }
  std::string publishAfter(Clock::duration time) {
    EXPECT_EQ(expiredAfter(time), "");
    return publish();
  }

  PublishLedger _ledger{{.bytes = 1000, .inFlightBytes = 30, .inFlight = 5}};
  TimePoint _now{seconds(1000)};
};

TEST_F(PublishLedgerTest, PublishesInOrderWithinItsWindow) {
  for (std::uint64_t i = 1; i <= 5; ++i) add(i);
  EXPECT_EQ(publish(), "1 2 3 ");
  EXPECT_TRUE(_ledger.stored(2));
  EXPECT_FALSE(_ledger.stored(2)) << "a second answer";
  EXPECT_EQ(publish(), "4 ");
  add(6, 500);
  for (const std::uint64_t number : {1, 3, 4, 5}) EXPECT_TRUE(_ledger.stored(number));
  EXPECT_EQ(publish(), "6 ") << "one message always fits";
  EXPECT_TRUE(_ledger.hasRoom(500));
  EXPECT_FALSE(_ledger.hasRoom(501));
}

TEST_F(PublishLedgerTest, BeginsAgainWithTheOldestAfterEveryFault) {
  for (std::uint64_t i = 1; i <= 3; ++i) add(i);
  publish();
  EXPECT_TRUE(_ledger.stored(1));
  _ledger.restart();
  EXPECT_EQ(publish(), "2 3 ");
  _ledger.failed(3, "no room", _now);
  EXPECT_EQ(publish(), "") << "not at once";
  EXPECT_EQ(publishAfter(milliseconds(250)), "2 3 ");
  EXPECT_EQ(publishAfter(milliseconds(4900)), "") << "the answer may still come";
  EXPECT_EQ(publishAfter(milliseconds(100)), "2 3 ");
}

TEST_F(PublishLedgerTest, GivesUpWhatWasTriedLongEnoughOrIsTooLargeAndNothingElse) {
  add(1);
  _now += seconds(1);
  add(2);
  add(3, 900);
  EXPECT_EQ(expiredAfter(seconds(118)), "");
  EXPECT_EQ(expiredAfter(seconds(1)), "1 ");
  EXPECT_EQ(_ledger.takeLargerThan(899).at(0).sequence, 3U);
  EXPECT_EQ(publish(), "2 ");
}

}  // namespace
}  // namespace kestrel::streams
