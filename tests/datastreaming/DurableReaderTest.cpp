#include <gmock/gmock.h>

#include "transports/nats/durable/DurableIntake.hpp"
#include "transports/nats/durable/ReaderLife.hpp"

namespace kestrel::streams {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class DurableIntakeTest : public testing::Test {
 protected:
  auto arrived(std::uint64_t stored, std::uint64_t count) {
    return _intake.arrived({stored, count}, "ack " + std::to_string(count));
  }
  void put(std::uint64_t producer, std::uint64_t sequence, std::uint32_t refusedBefore = 0) {
    _intake.put(Stamp{.producer = producer, .sequence = sequence, .refusedBefore = refusedBefore},
                std::to_string(sequence), _now);
  }
  void putFirstAndThird() {
    put(1, 1);
    put(1, 3);
  }
  std::string out() {
    std::string text;
    while (const auto item = _intake.next()) text += *item + " ";
    return text;
  }

  TimePoint _now{seconds(1000)};
  DurableIntake<std::string> _intake{{.patience = seconds(10),
                                      .waitingBytes = 20,
                                      .cost = [](const std::string&) -> std::uint64_t { return 10; },
                                      .producers = 3}};
};

TEST_F(DurableIntakeTest, WhatWasDroppedOnItsWayBreaksTheReaderAndTheNextOneGetsIt) {
  EXPECT_TRUE(arrived(5, 1).fresh);
  EXPECT_FALSE(_intake.isComplete("2")) << "the server has sent one more";
  EXPECT_EQ(_intake.settle(5), "ack 1");
  EXPECT_TRUE(arrived(7, 3).broken);
  _intake.readerReplaced();
  EXPECT_TRUE(arrived(5, 1).settled);
  EXPECT_TRUE(arrived(6, 2).fresh);
  _intake.readerReplaced();
  EXPECT_FALSE(arrived(6, 1).fresh) << "it is being dealt with";
  EXPECT_EQ(_intake.settle(6), "ack 1") << "where it was sent last";
  _intake.storeReplaced();
  EXPECT_TRUE(arrived(5, 2).fresh) << "another message, of another store";
}

TEST_F(DurableIntakeTest, MessagesGoOnInTheOrderOfTheirProducersAndNewsBehindWhatTheySpeakOf) {
  putFirstAndThird();
  _intake.put(ProducerEvent{ProducerEvent::Kind::gone, 1, 3}, "gone", _now);
  put(2, 4);
  put(2, 7, 2);
  EXPECT_EQ(out(), "1 4 7 ") << "two were refused before 7";
  put(1, 2);
  EXPECT_EQ(out(), "2 3 gone ");
}

TEST_F(DurableIntakeTest, RemovedMessagesAreToldAndNotWaitedForWhicheverSideOfTheRemovalShowsIt) {
  _intake.startAfter(4);
  EXPECT_EQ(arrived(2, 1).expired, 0U) << "holes among what was sent before mean nothing";
  put(2, 1);
  putFirstAndThird();
  EXPECT_EQ(arrived(9, 2).expired, 4U);
  put(2, 3);
  put(2, 5);
  EXPECT_EQ(out(), "1 1 3 3 ") << "only the first gap is excused";
}

TEST_F(DurableIntakeTest, EachMessageWaitsForItselfAndNoLonger) {
  const auto outAt = [&](milliseconds time) { return _intake.tick(_now + time, _now + time), out(); };
  putFirstAndThird();
  _now += seconds(6);
  put(1, 5);
  EXPECT_EQ(outAt(milliseconds(3999)), "1 ");
  EXPECT_EQ(outAt(milliseconds(4200)), "3 ");
  EXPECT_EQ(outAt(milliseconds(9999)), "");
}

TEST_F(DurableIntakeTest, GapIsGivenUpOnABusyStreamTooButNotBeforeWhatWaitsHasBeenLookedAt) {
  constexpr milliseconds behind{500};
  std::uint64_t others = 100;
  const auto workUntil = [&](TimePoint end) {
    for (; _now < end; _now += milliseconds(20)) {
      put(2, ++others);
      _intake.tick(_now, _now - behind);
      if (out().ends_with(" 3 ")) return true;
    }
    return false;
  };
  putFirstAndThird();
  const TimePoint due = _now + seconds(10) + behind;
  EXPECT_FALSE(workUntil(due));
  EXPECT_TRUE(workUntil(due + milliseconds(200)));
}

TEST_F(DurableIntakeTest, ProducersOfWhomNothingWaitsAreForgottenOnceThereAreMany) {
  putFirstAndThird();
  for (const std::uint64_t producer : {2, 3, 4}) {
    _now += seconds(1);
    put(producer, 1);
  }
  for (const std::uint64_t producer : {2, 4, 1}) put(producer, producer == 1 ? 2 : 3);
  EXPECT_EQ(out(), "1 1 1 1 3 2 3 ") << "of 2 nothing is known, so nothing is missing";
}

class ReaderLifeTest : public testing::Test {
 protected:
  using Step = ReaderLife::Step;

  TimePoint _now{seconds(1000)};
  ReaderLife _life;
};

TEST_F(ReaderLifeTest, ReaderIsReplacedForANewSessionOrWhenTheServerFallsSilentAndNotForAnOutage) {
  EXPECT_EQ(_life.next(1, _now), Step::attach);
  _life.attached(1, _now);
  _life.heard(_now += seconds(4));
  EXPECT_EQ(_life.next(1, _now + seconds(4)), Step::receive);
  EXPECT_EQ(_life.next(1, _now += milliseconds(4001)), Step::attach) << "no heartbeat came";
  _life.attached(1, _now);
  EXPECT_EQ(_life.next(0, _now += seconds(9)), Step::wait) << "nothing can come";
  EXPECT_EQ(_life.next(2, _now), Step::attach);
}

TEST_F(ReaderLifeTest, ReadersThatDoNotLastAreReplacedMoreAndMoreSlowly) {
  std::uint64_t session = 1;
  for (const int milli : {0, 100, 200, 400, 800, 1600, 2000, 2000}) {
    const milliseconds most(milli);
    _life.attached(session, _now);
    const Step expected = most.count() == 0 ? Step::attach : Step::wait;
    EXPECT_EQ(_life.next(++session, _now), expected);
    EXPECT_EQ(_life.next(session, _now + most / 2 - milliseconds(1)), expected);
    EXPECT_EQ(_life.next(session, _now += most), Step::attach);
  }
  _life.attached(session, _now);
  EXPECT_EQ(_life.next(++session, _now += seconds(6)), Step::attach) << "that one has lasted";
}

}  // namespace
}  // namespace kestrel::streams
