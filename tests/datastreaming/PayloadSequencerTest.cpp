#include "sequencing/PayloadSequencer.hpp"

#include <gmock/gmock.h>
#include <kestrel/memory/Buffer.hpp>

#include <sstream>

#include "Frames.hpp"

namespace kestrel::streams {
namespace {

/// Runs a script of events through a sequencer and writes down what comes out.
///
/// Words are those of frameOf(), and these: "+<ms>" moves the time, "tick" tells it, "e<ms>" excuses,
/// "v<producer>" vanishes, "s<producer><n>" says that n were sent, beginning at once, and "o<producer><n>"
/// the same of one that began before the script. Out come the messages, with "*<n>" if they were joined of n,
/// "-<n>" for a reported loss, "(-<n>)" for one that is only counted, and "=" for a copy.
class Script {
 public:
  explicit Script(const PayloadSequencer::Limits& limits) : sequencer(limits) { sequencer.begin(_now); }

  std::string run(const std::string& events) {
    std::istringstream words(events);
    for (std::string word; words >> word;) {
      step(word);
      while (auto action = sequencer.next()) std::visit([this](auto& what) { write(what); }, *action);
    }
    return _out.substr(0, _out.size() - 1);
  }

  PayloadSequencer sequencer;

 private:
  void step(const std::string& word) {
    const auto producer = static_cast<std::uint64_t>(word[1]);
    switch (word[0]) {
      case 't':
        _out += "tick ";
        return sequencer.tick(_now);
      case '+':
        return void(_now += std::chrono::milliseconds(std::stol(word)));
      case 'e':
        return sequencer.excuse(std::chrono::milliseconds(std::stol(word.substr(1))));
      case 'v':
        return sequencer.producerVanished(producer);
      case 's':
      case 'o':
        return sequencer.producerReached(producer, std::stoull(word.substr(2)),
                                         word[0] == 's' ? _now : TimePoint(), _now);
      default:
        return sequencer.accept(frameOf(word, _now));
    }
  }

  void write(const PayloadSequencer::Deliver& deliver) {
    const Stamp& stamp = deliver.frame.stamp;
    _out += static_cast<char>(stamp.producer) + std::to_string(stamp.sequence);
    if (deliver.frame.messages > 1) _out += '*' + std::to_string(deliver.frame.messages);
    _out += ' ';
  }
  void write(const PayloadSequencer::Loss& loss) {
    const std::string count = '-' + std::to_string(loss.messages);
    _out += loss.text.empty() ? '(' + count + ") " : count + ' ';
  }
  void write(const PayloadSequencer::Copy&) { _out += "= "; }

  TimePoint _now{std::chrono::hours(1)};
  std::string _out;
};

struct Scenario {
  const char* name;
  const char* events;
  const char* outcome;
};

class SequencerScenario : public testing::TestWithParam<Scenario> {};

TEST_P(SequencerScenario, ComesOutAsTold) {
  EXPECT_EQ(Script({.payloadBytes = 1000, .heldBytes = 6000}).run(GetParam().events), GetParam().outcome)
      << GetParam().events;
}

const Scenario scenarios[] = {
    // Order
    {"NobodyWaitsForAnotherPayload", "A1/1.0 B1/1.0 C1 B2/1.1! A2/1.1!", "C1 B2*2 A2*2"},
    // Gaps
    {"GapEndsTheOpenPayloadAndNoOther", "A1/1.0 B1/1.0 A3/1.2! A4/2.0! B2/1.1!", "-2 (-1) A4 B2*2"},
    {"PayloadWithoutItsBeginningIsDropped", "A7/3.2 A8/3.3! A9/4.0!", "-1 (-1) A9"},
    {"OnlyWhatWasNotRefusedIsMissing", "A1 A3r1 A7r2", "A1 A3 -1 A7"},
    {"RefusedPlainMessageHarmsNoPayload", "A1/1.0 A3/1.1!r1", "A3*2"},
    {"StampTellsOfAbandonment", "A1/1.0 A3r1x A4/2.0!", "-1 A3 A4"},
    {"LeftUnfinishedForAnother", "A1/1.0 A2/2.0! A3/3.0 A4/4.0 A5/4.1!", "-1 A2 -1 A5*2"},
    // The ends of a producer's sequence
    {"LastWordTellsOnceOfALostEnd", "A1 A2 sA2 sA1 sA4 vA sA4", "A1 A2 -2"},
    {"LostEndTakesTheOpenPayload", "A1/1.0 sA2 A3", "-2 A3"},
    {"LostBeginningOfOneThatBeganMeanwhile", "sA0 A5 sA5 A6 sA6", "A5 -4 A6"},
    {"YoungMessageTellsOfALostBeginning", "+50 A5y50 A6y60 sA6", "-4 A5 A6"},
    {"RefusedBeginningIsNotMissing", "A3r2y0 A4", "A3 A4"},
    {"OldMessageTellsOfNone", "+50 A5y51 A6 sA6", "A5 A6"},
    {"NorDoesOneThatMayHaveWaited", "+50 A5y40w11 A6 +50 B5y40w10", "A5 A6 -4 B5"},
    {"UnheardBeginningOfOneThatWasThereBefore", "A5 oA5 A6 sA6", "A5 A6"},
    {"NothingButTheLastWord", "sA3 vA oB3 vB", "-3"},
    // Forged numbers
    {"JumpTooFarIsNotBelieved", "A1 A18446744073709551615 sA18446744073709551615 A2", "A1 -1 -0 A2"},
    {"FalseJumpIsTakenBack", "A1 A1000 A2 A3 A4", "A1 -998 A1000 -0 A3 A4"},
    {"FalseWordIsTakenBack", "A1 sA1000 A2 A3 A4", "A1 -999 -0 A3 A4"},
    {"LateOneStaysLost", "A1 A2 A5 A6 A3 A6 A7", "A1 A2 -2 A5 A6 = A7"},
    {"WhatWasDeliveredIsNotMissingAfterAll", "A1 A5 A6 A2 A3 A7", "A1 -3 A5 A6 -0 A3 A7"},
    {"FalseFirstNumberIsTakenBack", "A99 A1 A2 A3 A4 A5 A6 A7 A8 A9", "A99 -1 -1 -1 -1 -1 -1 -1 -0 A8 A9"},
    // Faults
    {"EachPieceStartsTheSilenceAnew", "A1/1.0 +6000 A2/1.1 +9999 tick A3/1.2!", "tick A3*3"},
    {"PlainMessageDoesNotBreakTheSilence", "A1/1.0 +6000 A2 +4000 tick A3/1.1!", "A2 tick -1 (-1)"},
    {"EachIsExcusedForItself", "A1/1.0 +3000 B1/1.0 +7000 e5000 +4999 tick +1 tick B2/1.1!",
     "tick tick -1 B2*2"},
    {"OverlongPayloadEnds", "A1/1.0b600 A2/1.1b600 A3/1.2! A4/2.0!", "-2 (-1) A4"},
    {"TooMuchHeldLosesTheLargest", "A1/1.0b900 B1/1.0 C1/1.0b900 A2/1.1! B2/1.1! C2/1.1!",
     "-1 A2*2 B2*2 (-1)"},
    {"AttributesCountAsHeld", "A1/1.0l A2", "-1 A2"},
    {"TextAsSizeEndsThePayload", "A1/1.0 A2/1.1t A3/1.2! A4", "-2 (-1) A4"},
    {"StampAgainstAttributesIsLost", "A1/1.0n A2/1.1! A3", "-1 (-1) A3"},
    {"PieceOutOfItsPlaceEndsThePayload", "A1/1.0 A2/1.2 A3/1.3!", "-2 (-1)"},
    {"UnknownVersionIsLost", "A1u B1", "-1 B1"},
};

INSTANTIATE_TEST_SUITE_P(Each, SequencerScenario, testing::ValuesIn(scenarios),
                         [](const auto& info) { return info.param.name; });

TEST(PayloadSequencer, RemembersABoundedNumberOfProducersAndAllThatAreWithinAPayload) {
  Script script({.producers = 8});
  script.run("A1/1.0 A2");
  for (char producer = 'B'; producer <= 'Z'; ++producer) script.run(std::string{producer, '1'});
  EXPECT_LE(script.sequencer.producersKnown(), 8U);
  EXPECT_THAT(script.run("A3/1.1!"), testing::EndsWith("A3*2"));
}

TEST(PayloadSequencer, ForgetsNobodyIntoALoss) {
  Script script({.producers = 2});
  EXPECT_EQ(script.run("A1 +10 oB5 oC5 +10 sD5 oA1"), "A1 -5") << "only D has begun since";
}

TEST(PayloadAssembly, CountsThePagesThatALengthTakesAndLetsNobodyHoldOnToMuchMoreThanItsBytes) {
  const std::vector<std::uint8_t> bytes(256 << 10);
  const auto mayBeHeld = [&](std::uint64_t told, std::uint64_t leastCost) {
    PayloadAssembly assembly(1, 1);
    Frame piece;
    piece.data = bytes.data();
    piece.size = bytes.size();
    piece.stamp.whole = told;
    assembly.add(piece);
    EXPECT_GE(assembly.cost(), leastCost);
    EXPECT_LT(assembly.cost(), 2 * leastCost) << "cheap words must not push others out";
    const Frame whole = std::move(assembly).whole();
    return memory::ownerOf(whole.data, whole.size).owner != nullptr;
  };
  EXPECT_TRUE(mayBeHeld(300 << 10, bytes.size()));
  EXPECT_FALSE(mayBeHeld(64 << 20, 2 << 20));
}

}  // namespace
}  // namespace kestrel::streams
