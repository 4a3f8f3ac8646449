#include "transports/shared/PayloadSequencer.hpp"

#include <gtest/gtest.h>

#include <array>
#include <kestrel/datastreaming/Keys.hpp>
#include <sstream>

namespace kestrel::streams {
namespace {

using datastreaming::MessageAttributes;

/// Runs a script of events through a sequencer and writes down what comes out.
///
/// A message is "<producer><sequence>", a piece "<producer><sequence>/<payload>.<index>", with "!" for the
/// last one and then options: r<n> n refused before it, x its producer abandons the open payload, b<n> size,
/// y<ms> age, t a text where an integer belongs, i an integer where a text belongs, n no attributes, u
/// unknown version.
/// "+<ms>" moves the time, "tick" tells it, "e<ms>" excuses, "v<producer>" vanishes, "a<producer>" abandons,
/// "s<producer><n>" says that n were sent, beginning at once, and "o<producer><n>" the same of one that began
/// before the script. Out come the messages, with "*<n>" if they were joined of n, "-<n>" for a reported
/// loss,
/// "(-<n>)" for one that is only counted, and "=" for a copy.
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
    if (word == "tick") {
      _out += "tick ";
      return sequencer.tick(_now);
    }
    const auto producer = static_cast<std::uint64_t>(word[1]);
    switch (word[0]) {
      case '+':
        return void(_now += std::chrono::milliseconds(std::stol(word)));
      case 'e':
        return sequencer.excuse(std::chrono::milliseconds(std::stol(word.substr(1))));
      case 'v':
        return sequencer.producerVanished(producer);
      case 'a':
        return sequencer.payloadAbandoned(producer);
      case 's':
        return sequencer.producerReached(producer, std::stoull(word.substr(2)), _now, _now);
      case 'o':
        return sequencer.producerReached(producer, std::stoull(word.substr(2)), TimePoint(), _now);
      default:
        return sequencer.accept(frame(word));
    }
  }

  [[nodiscard]] Frame frame(const std::string& word) const {
    const auto has = [&](char option) { return word.find(option) != std::string::npos; };
    const auto number = [&](char option) { return std::stoul(word.substr(word.find(option) + 1)); };
    Frame frame;
    frame.arrival = frame.earliest = _now;
    frame.size = has('b') ? number('b') : 1;
    frame.data = bytes.data();
    Stamp& stamp = frame.stamp;
    stamp.producer = static_cast<std::uint64_t>(word[0]);
    stamp.sequence = std::stoull(word.substr(1));
    stamp.payload = has('/') ? number('/') : stamp.sequence;
    stamp.chunkIndex = has('.') ? static_cast<std::uint32_t>(number('.')) : 0;
    stamp.chunked = has('/');
    stamp.last = !stamp.chunked || has('!');
    stamp.refusedBefore = has('r') ? static_cast<std::uint32_t>(number('r')) : 0;
    stamp.abandons = has('x');
    if (has('y')) stamp.age = static_cast<std::int64_t>(number('y'));
    if (has('u')) stamp.version = 77;
    if (stamp.chunked && !has('n')) {
      frame.attributes = {{MessageAttributes::CompressionType, "chunk"},
                          {MessageAttributes::UnCompressedSize, stamp.last ? 0L : 99L}};
    }
    if (has('t')) frame.attributes[MessageAttributes::UnCompressedSize] = "99";
    if (has('i')) frame.attributes[MessageAttributes::CompressionType] = 1L;
    return frame;
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

  static constexpr std::array<std::uint8_t, 4096> bytes{};
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
    {"PlainMessagePassesTheOwnPayload", "A1/1.0 A2 A3/1.1!", "A2 A3*2"},
    {"PayloadOfOnePieceIsWhole", "A1/1.0! A2", "A1 A2"},
    {"CopyIsDropped", "A1 A2 A1 A2 A3", "A1 A2 = = A3"},
    // Gaps
    {"MissingPlainMessagesAreCounted", "A1 A4", "A1 -2 A4"},
    {"GapEndsTheOpenPayload", "A1/1.0 A3/1.2! A4/2.0!", "-2 (-1) A4"},
    {"MissingLastPieceEndsThePayload", "A1/1.0 A3/2.0!", "-2 A3"},
    {"GapOfOneHarmsNoOther", "A1/1.0 B1/1.0 B3/1.2! A2/1.1!", "-2 (-1) A2*2"},
    {"WhatWasBeforeTheStartIsNotMissing", "A7 A8", "A7 A8"},
    {"PayloadWithoutItsBeginningIsDropped", "A7/3.2 A8/3.3! A9/4.0!", "-1 (-1) A9"},
    {"OnlyWhatWasNotRefusedIsMissing", "A1 A3r1 A7r2", "A1 A3 -1 A7"},
    {"RefusedPlainMessageHarmsNoPayload", "A1/1.0 A3/1.1!r1", "A3*2"},
    {"AbandonedPayloadEnds", "A1/1.0 aA B1/1.0!", "-1 B1"},
    {"StampTellsOfAbandonment", "A1/1.0 A3r1x A4/2.0!", "-1 A3 A4"},
    {"LeftUnfinishedForAnother", "A1/1.0 A2/2.0! A3/3.0 A4/4.0 A5/4.1!", "-1 A2 -1 A5*2"},
    // The ends of a producer's sequence
    {"LastWordTellsOfALostEnd", "A1 sA3 vA sA3", "A1 -2"},
    {"WordThatSaysNothingNew", "A1 A2 sA2 A3 sA1", "A1 A2 A3"},
    {"LostEndTakesTheOpenPayload", "A1/1.0 sA2 A3", "-2 A3"},
    {"LostBeginningOfOneThatBeganMeanwhile", "A5 sA5 A6 sA6", "A5 -4 A6"},
    {"YoungMessageTellsOfALostBeginning", "+50 A5y50 A6y60 sA6", "-4 A5 A6"},
    {"RefusedBeginningIsNotMissing", "A3r2y0 A4", "A3 A4"},
    {"OldMessageTellsOfNone", "+50 A5y51 A6 sA6", "A5 A6"},
    {"UnheardBeginningOfOneThatWasThereBefore", "A5 oA5 A6 sA6", "A5 A6"},
    {"NothingButTheLastWord", "sA3 vA oB3 vB", "-3"},
    // Forged numbers
    {"JumpTooFarIsNotBelieved", "A1 A18446744073709551615 sA18446744073709551615 A2", "A1 -1 -0 A2"},
    {"FalseJumpIsTakenBack", "A1 A1000 A2 A3 A4", "A1 -998 A1000 -0 A3 A4"},
    {"FalseWordIsTakenBack", "A1 sA1000 A2 A3 A4", "A1 -999 -0 A3 A4"},
    {"LateOneStaysLost", "A1 A2 A5 A6 A3 A6 A7", "A1 A2 -2 A5 A6 = A7"},
    {"WhatWasDeliveredIsNotMissingAfterAll", "A1 A5 A6 A2 A3 A7", "A1 -3 A5 A6 -0 A3 A7"},
    {"OneFromBelowIsLost", "A5 A3 A6", "A5 -1 A6"},
    {"FalseFirstNumberIsTakenBack", "A99 A1 A2 A3 A4 A5 A6 A7 A8 A9", "A99 -1 -1 -1 -1 -1 -1 -1 -0 A8 A9"},
    // Faults
    {"VanishedProducersPayloadEnds", "A1/1.0 B1/1.0 vA B2/1.1!", "-1 B2*2"},
    {"TenSecondsOfSilenceEndAPayload", "A1/1.0 +9999 tick +1 tick A2/1.1!", "tick tick -1 (-1)"},
    {"EachPieceStartsTheSilenceAnew", "A1/1.0 +6000 A2/1.1 +9999 tick A3/1.2!", "tick A3*3"},
    {"PlainMessageDoesNotBreakTheSilence", "A1/1.0 +6000 A2 +4000 tick A3/1.1!", "A2 tick -1 (-1)"},
    {"ExcusedTimeIsNoSilence", "A1/1.0 +19999 e10000 tick +1 tick", "tick tick -1"},
    {"TheOldestFallsSilentFirst", "A1/1.0 +6000 B1/1.0 +4000 tick A2/1.1! B2/1.1!", "tick -1 (-1) B2*2"},
    {"OverlongPayloadEnds", "A1/1.0b600 A2/1.1b600 A3/1.2! A4/2.0!", "-2 (-1) A4"},
    {"TooMuchHeldLosesTheLargest", "A1/1.0b900 B1/1.0 C1/1.0b900 A2/1.1! B2/1.1! C2/1.1!",
     "-1 A2*2 B2*2 (-1)"},
    {"TextAsSizeEndsThePayload", "A1/1.0 A2/1.1t A3/1.2! A4", "-2 (-1) A4"},
    {"IntegerAsKindIsLost", "A1i A2", "-1 A2"},
    {"StampAgainstAttributesIsLost", "A1/1.0n A2/1.1! A3", "-1 (-1) A3"},
    {"PieceOutOfItsPlaceEndsThePayload", "A1/1.0 A2/1.2 A3/1.3!", "-2 (-1)"},
    {"UnknownVersionIsLost", "A1u B1", "-1 B1"},
};

INSTANTIATE_TEST_SUITE_P(Each, SequencerScenario, testing::ValuesIn(scenarios),
                         [](const auto& info) { return info.param.name; });

TEST(PayloadSequencer, RemembersABoundedNumberOfProducersAndKeepsThoseWithAnOpenPayload) {
  Script script({.producers = 8});
  script.run("A1/1.0");
  for (char producer = 'B'; producer <= 'Z'; ++producer) script.run(std::string{producer, '1'});
  EXPECT_LE(script.sequencer.producersKnown(), 8U);
  EXPECT_EQ(script.sequencer.messagesHeld(), 1U);
}

TEST(PayloadSequencer, ForgetsNobodyIntoALoss) {
  Script script({.producers = 2});
  EXPECT_EQ(script.run("A1 +10 oB5 oC5 +10 sD5 oA1"), "A1 -5") << "only D has begun since";
}

TEST(PayloadSequencer, AttributesOfUnfinishedPayloadsCount) {
  PayloadSequencer sequencer({.heldBytes = 10'000});
  Frame frame;
  frame.stamp = {.producer = 1, .sequence = 1, .payload = 1, .chunked = true, .last = false};
  frame.attributes = {{MessageAttributes::CompressionType, "chunk"},
                      {MessageAttributes::UnCompressedSize, 1L},
                      {"large", std::string(20'000, 'x')}};
  sequencer.accept(std::move(frame));
  EXPECT_EQ(sequencer.messagesHeld(), 0U);
}

TEST(SpareBuffers, GiveNobodyMuchMoreThanItNeeds) {
  SpareBuffers spares;
  const std::vector<std::uint8_t> bytes(1 << 20);
  { spares.make()->append(bytes.data(), bytes.size()); }
  const auto little = spares.make();
  spares.prepare(*little, 100'000);
  EXPECT_EQ(little->capacity(), 0U);
  spares.prepare(*little, 300'000);
  EXPECT_EQ(little->capacity(), bytes.size());
}

TEST(PayloadSequencer, JoinsThePiecesOfOnePayload) {
  PayloadSequencer sequencer;
  const std::string text = "three pieces";
  for (std::uint32_t i = 0; i < 3; ++i) {
    Frame frame;
    frame.stamp = {
        .producer = 1, .sequence = i + 1, .payload = 1, .chunkIndex = i, .chunked = true, .last = i == 2};
    frame.attributes = {{MessageAttributes::CompressionType, "chunk"},
                        {MessageAttributes::UnCompressedSize, i == 2 ? 0L : 4L}};
    frame.data = reinterpret_cast<const std::uint8_t*>(text.data()) + 4 * i;
    frame.size = 4;
    sequencer.accept(std::move(frame));
  }
  const auto action = sequencer.next();
  ASSERT_TRUE(action);
  const Frame& whole = std::get<PayloadSequencer::Deliver>(*action).frame;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(whole.data), whole.size), text);
}

}  // namespace
}  // namespace kestrel::streams
