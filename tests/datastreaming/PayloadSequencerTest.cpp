#include "transports/shared/PayloadSequencer.hpp"

#include <gtest/gtest.h>

#include <array>
#include <kestrel/datastreaming/Keys.hpp>
#include <random>
#include <sstream>

namespace kestrel::streams {
namespace {

using datastreaming::MessageAttributes;

/// Runs a script of events through a sequencer and writes down what comes out.
///
/// A message is "<producer><sequence>", a piece "<producer><sequence>/<payload>.<index>", with "!" for the
/// last one and then options: r<n> n refused before it, x its producer abandons the open payload, b<n> size,
/// t a text where an integer belongs, i an integer where a text belongs, n no attributes, u unknown version.
/// "+<ms>" moves the time, "tick" tells it, "v<producer>" vanishes, "a<producer>" abandons, "fail" fails the
/// newest delivery. Out come the messages, "<producer>:end", "-<n>" for a reported loss and "(-<n>)" for one
/// that is only counted.
class Script {
 public:
  explicit Script(const PayloadSequencer::Limits& limits) : sequencer(limits) {}

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
    if (word == "tick" || word == "fail") _out += word + ' ';
    if (word == "tick") return sequencer.tick(_now);
    if (word == "fail") return sequencer.deliveryFailed(_delivered);
    switch (word[0]) {
      case '+':
        return void(_now += std::chrono::milliseconds(std::stol(word)));
      case 'v':
        return sequencer.producerVanished(static_cast<std::uint64_t>(word[1]));
      case 'a':
        return sequencer.payloadAbandoned(static_cast<std::uint64_t>(word[1]));
      default:
        return sequencer.accept(frame(word));
    }
  }

  [[nodiscard]] Frame frame(const std::string& word) const {
    const auto has = [&](char option) { return word.find(option) != std::string::npos; };
    const auto number = [&](char option) { return std::stoul(word.substr(word.find(option) + 1)); };
    Frame frame;
    frame.arrival = _now;
    frame.size = has('b') ? number('b') : 1;
    Stamp& stamp = frame.stamp;
    stamp.producer = static_cast<std::uint64_t>(word[0]);
    stamp.sequence = std::stoul(word.substr(1));
    stamp.payload = has('/') ? number('/') : stamp.sequence;
    stamp.chunkIndex = has('.') ? static_cast<std::uint32_t>(number('.')) : 0;
    stamp.chunked = has('/');
    stamp.last = !stamp.chunked || has('!');
    stamp.refusedBefore = has('r') ? static_cast<std::uint32_t>(number('r')) : 0;
    stamp.abandons = has('x');
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
    _delivered = deliver.frame.stamp;
    _out += static_cast<char>(_delivered.producer) + std::to_string(_delivered.sequence) + ' ';
  }
  void write(const PayloadSequencer::EndPayload& end) {
    _out += static_cast<char>(end.stamp.producer) + std::string(":end ");
  }
  void write(const PayloadSequencer::Loss& loss) {
    const std::string count = '-' + std::to_string(loss.messages);
    _out += loss.text.empty() ? '(' + count + ") " : count + ' ';
  }

  TimePoint _now{std::chrono::hours(1)};
  Stamp _delivered;
  std::string _out;
};

struct Scenario {
  const char* name;
  const char* events;
  const char* outcome;
};

class SequencerScenario : public testing::TestWithParam<Scenario> {};

TEST_P(SequencerScenario, ComesOutAsTold) {
  EXPECT_EQ(Script({.payloadBytes = 100, .waitingBytes = 100}).run(GetParam().events), GetParam().outcome)
      << GetParam().events;
}

const Scenario scenarios[] = {
    // Order
    {"PiecesOfOthersWait", "A1/1.0 B1/1.0 B2/1.1! A2/1.1!", "A1 A2 B1 B2"},
    {"PlainMessagesOfOthersPass", "A1/1.0 B1 A2/1.1!", "A1 B1 A2"},
    {"PlainMessagesStayInTheirPlace", "A1/1.0 A2 A3/1.1!", "A1 A2 A3"},
    {"PlainMessageWaitsBehindOwnPieces", "A1/1.0 B1/1.0! B2 C1 A2/1.1!", "A1 C1 A2 B1 B2"},
    {"PayloadsProceedInTheOrderOfWaiting", "A1/1.0 C1/1.0! B1/1.0! A2/1.1!", "A1 A2 C1 B1"},
    {"ProducersTakeTurns", "A1/1.0 B1/1.0! B2/2.0! C1/1.0! A2/1.1!", "A1 A2 B1 C1 B2"},
    {"UnfinishedPayloadTakesItsTurn", "A1/1.0 B1/1.0 C1/1.0! A2/1.1! B2/1.1!", "A1 A2 B1 B2 C1"},
    {"CopyIsDropped", "A1 A2 A1 A2 A3", "A1 A2 A3"},
    // Gaps
    {"MissingPlainMessagesAreCounted", "A1 A4", "A1 -2 A4"},
    {"GapEndsThePayloadInProgress", "A1/1.0 A3/1.2! A4/2.0!", "A1 -1 (-1) A:end A4"},
    {"MissingLastPieceEndsThePayload", "A1/1.0 A3/2.0!", "A1 -1 A:end A3"},
    {"GapInAWaitingPayloadDropsIt", "A1/1.0 B1/1.0 B2 B4/1.2! A2/1.1!", "A1 -2 (-1) A2 B2"},
    {"GapLetsTheNextPayloadProceed", "A1/1.0 B1/1.0! A3/1.2!", "A1 -1 (-1) A:end B1"},
    {"WhatWasBeforeTheStartIsNotMissing", "A7 A8", "A7 A8"},
    {"PayloadWithoutItsBeginningIsDropped", "A7/3.2 A8/3.3! A9/4.0!", "-1 (-1) A9"},
    {"MessageOlderThanTheStartIsLost", "A5 A3 A6", "A5 -1 A6"},
    {"OnlyWhatWasNotRefusedIsMissing", "A1 A3r1 A7r2", "A1 A3 -1 A7"},
    {"RefusedPlainMessageHarmsNoPayload", "A1/1.0 A3/1.1!r1", "A1 A3"},
    {"AbandonedPayloadEnds", "A1/1.0 aA B1/1.0!", "A1 -0 A:end B1"},
    {"StampTellsOfAbandonment", "A1/1.0 A3r1x A4/2.0!", "A1 -0 A:end A3 A4"},
    {"LeftUnfinishedForAnother", "A1/1.0 A2/2.0!", "A1 -0 A:end A2"},
    // Faults
    {"VanishedProducersPayloadEnds", "A1/1.0 vA B1/1.0!", "A1 -0 A:end B1"},
    {"WholePayloadOfTheVanishedArrives", "A1/1.0 B1/1.0 B2/1.1! vB A2/1.1!", "A1 A2 B1 B2"},
    {"WaitingPayloadOfTheVanishedIsDropped", "A1/1.0 B1/1.0 vB A2/1.1!", "A1 -1 A2"},
    {"TenSecondsOfSilenceEndAPayload", "A1/1.0 +9999 tick +1 tick A2/1.1!", "A1 tick tick -0 A:end (-1)"},
    {"EachPieceStartsTheSilenceAnew", "A1/1.0 +6000 A2/1.1 +9999 tick A3/1.2!", "A1 A2 tick A3"},
    {"SilenceShowsInTheArrivalOfOthers", "A1/1.0 +10000 B1/1.0!", "A1 -0 A:end B1"},
    {"WaitingPayloadsFallSilentToo", "A1/1.0 B1/1.0 +6000 A2/1.1 +4000 tick A3/1.2!", "A1 A2 tick -1 A3"},
    {"OverlongPayloadEnds", "A1/1.0b60 A2/1.1b60 A3/1.2! A4/2.0!", "A1 -1 A:end (-1) A4"},
    {"TooMuchWaitingLosesThePayload", "A1/1.0 B1/1.0b60 B2/1.1b60 B3/1.2! A2/1.1!", "A1 -2 (-1) A2"},
    {"TextAsSizeEndsThePayload", "A1/1.0 A2/1.1t A3/1.2! A4", "A1 -1 A:end (-1) A4"},
    {"IntegerAsKindIsLost", "A1i A2", "-1 A2"},
    {"StampAgainstAttributesIsLost", "A1/1.0n A2/1.1! A3", "-1 (-1) A3"},
    {"PieceOutOfItsPlaceEndsThePayload", "A1/1.0 A2/1.2 A3/1.3!", "A1 -1 A:end (-1)"},
    {"UnknownVersionIsLost", "A1u B1", "-1 B1"},
    {"FailedPieceEndsThePayload", "A1/1.0 fail A2/1.1 A3/1.2! A4/2.0!", "A1 fail A:end (-1) (-1) A4"},
    {"FailedLastPieceEndsNothing", "A1/1.0 A2/1.1! fail A3", "A1 A2 fail A3"},
};

INSTANTIATE_TEST_SUITE_P(Each, SequencerScenario, testing::ValuesIn(scenarios),
                         [](const auto& info) { return info.param.name; });

TEST(PayloadSequencer, RemembersABoundedNumberOfProducersAndKeepsThoseWithAnOpenPayload) {
  Script script({.producers = 8});
  script.run("A1/1.0");
  for (char producer = 'B'; producer <= 'Z'; ++producer) script.run(std::string{producer, '1'});
  EXPECT_LE(script.sequencer.producersKnown(), 8U);
  EXPECT_EQ(script.sequencer.activeProducer(), std::uint64_t{'A'});
}

/// Four producers whose messages are mixed and lost at random.
class RandomTraffic {
 public:
  explicit RandomTraffic(unsigned seed) : _random(seed) {}

  void run(std::size_t messages) {
    for (std::size_t i = 0; i < messages; ++i)
      send(_sources[_random() % _sources.size()], _random() % 12 == 0);
    for (Source& source : _sources) {
      while (source.piecesLeft > 0) send(source, _random() % 4 == 0);
      send(source, false);  // shows what is missing before it
    }
    _sequencer.tick(_now + std::chrono::hours(1));
    take();
    for (const Source& source : _sources) _expected += source.stamp.sequence - source.first + 1;
    EXPECT_EQ(_delivered + _lost, _expected) << "each message is delivered or counted";
    EXPECT_EQ(_open, Payload()) << "each payload ends";
  }

 private:
  using Payload = std::pair<std::uint64_t, std::uint64_t>;  // producer and number
  struct Source {
    Stamp stamp;
    std::uint64_t first = 0;  // that arrived
    std::size_t piecesLeft = 0;
    std::uint64_t delivered = 0;
  };

  void send(Source& source, bool isLost) {
    Stamp& stamp = source.stamp;
    stamp.producer = static_cast<std::uint64_t>(&source - _sources.data()) + 1;
    ++stamp.sequence;
    if (source.piecesLeft == 0) {
      stamp.chunked = _random() % 2 == 0;
      source.piecesLeft = stamp.chunked ? 1 + _random() % 5 : 1;
      ++stamp.payload;
      stamp.chunkIndex = 0;
    } else {
      ++stamp.chunkIndex;
    }
    stamp.last = --source.piecesLeft == 0;
    if (isLost) return;
    if (source.first == 0) source.first = stamp.sequence;
    Frame frame;
    frame.stamp = stamp;
    frame.arrival = _now;
    if (stamp.chunked) {
      frame.attributes = {{MessageAttributes::CompressionType, "chunk"},
                          {MessageAttributes::UnCompressedSize, stamp.last ? 0L : 1L}};
    }
    _sequencer.accept(std::move(frame));
    take();
  }

  void take() {
    while (auto action = _sequencer.next()) std::visit([this](auto& what) { check(what); }, *action);
  }
  void check(const PayloadSequencer::Deliver& deliver) {
    const Stamp& stamp = deliver.frame.stamp;
    std::uint64_t& before = _sources[stamp.producer - 1].delivered;
    EXPECT_GT(stamp.sequence, before) << "in the producer's order";
    before = stamp.sequence;
    ++_delivered;
    if (!stamp.chunked) return;
    EXPECT_EQ(_open, stamp.chunkIndex == 0 ? Payload() : Payload(stamp.producer, stamp.payload));
    EXPECT_EQ(stamp.chunkIndex, _nextIndex);
    _nextIndex = stamp.last ? 0 : stamp.chunkIndex + 1;
    _open = stamp.last ? Payload() : Payload(stamp.producer, stamp.payload);
  }
  void check(const PayloadSequencer::EndPayload& end) {
    EXPECT_EQ(_open, Payload(end.stamp.producer, end.stamp.payload));
    _open = {};
    _nextIndex = 0;
  }
  void check(const PayloadSequencer::Loss& loss) { _lost += loss.messages; }

  std::minstd_rand _random;
  PayloadSequencer _sequencer;
  std::array<Source, 4> _sources;
  const TimePoint _now{std::chrono::hours(1)};
  Payload _open;
  std::uint32_t _nextIndex = 0;
  std::uint64_t _delivered = 0;
  std::uint64_t _lost = 0;
  std::uint64_t _expected = 0;
};

TEST(PayloadSequencer, KeepsPayloadsWholeAndCountsEveryLossWhateverComes) {
  for (unsigned seed = 1; seed <= 200 && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    RandomTraffic(seed).run(300);
  }
}

}  // namespace
}  // namespace kestrel::streams
