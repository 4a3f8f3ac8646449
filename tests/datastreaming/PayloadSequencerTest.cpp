#include "transports/shared/PayloadSequencer.hpp"

#include <gtest/gtest.h>

#include <cctype>
#include <kestrel/datastreaming/Keys.hpp>
#include <random>
#include <sstream>

namespace kestrel::streams {
namespace {

using datastreaming::AttributeMap;
using datastreaming::MessageAttributes;

AttributeMap chunkAttributes(bool last) {
  return {{MessageAttributes::CompressionType, "chunk"},
          {MessageAttributes::UnCompressedSize, last ? 0L : 99L}};
}

Frame makeFrame(const Stamp& stamp, TimePoint arrival, std::uint64_t size = 1) {
  Frame frame;
  frame.stamp = stamp;
  frame.arrival = arrival;
  frame.size = size;
  if (stamp.chunked) frame.attributes = chunkAttributes(stamp.last);
  return frame;
}

/// Runs a script of events through a sequencer and writes down what comes out.
///
/// A message is "<producer><sequence>", a piece "<producer><sequence>/<payload>.<index>", with "!" for the
/// last one and then options: r<n> n refused before it, x its producer abandons the open payload, b<n> size,
/// t a text where an integer belongs, i an integer where a text belongs, n no attributes, V unknown version.
/// "+<ms>" moves the time, "tick" tells it, "v<producer>" vanishes, "a<producer>" abandons, "fail" fails the
/// newest delivery. Out come the messages, "<producer>:end", "-<n>" for a reported loss and "(-<n>)" for one
/// that is only counted.
class Script {
 public:
  explicit Script(const PayloadSequencer::Limits& limits = {}) : _sequencer(limits) {}

  std::string run(const std::string& events) {
    std::istringstream words(events);
    for (std::string word; words >> word;) {
      step(word);
      drain();
    }
    return _out;
  }

 private:
  void step(const std::string& word) {
    if (word[0] == '+') {
      _now += std::chrono::milliseconds(std::stol(word.substr(1)));
    } else if (word == "tick") {
      write("tick");
      _sequencer.tick(_now);
    } else if (word == "fail") {
      write("fail");
      _sequencer.deliveryFailed(_delivered);
    } else if (word[0] == 'v') {
      _sequencer.producerVanished(static_cast<std::uint64_t>(word[1]));
    } else if (word[0] == 'a') {
      _sequencer.payloadAbandoned(static_cast<std::uint64_t>(word[1]));
    } else {
      message(word);
    }
  }

  void message(const std::string& word) {
    std::istringstream in(word);
    Stamp stamp;
    stamp.producer = static_cast<std::uint64_t>(in.get());
    in >> stamp.sequence;
    stamp.payload = stamp.sequence;
    if (in.peek() == '/') {
      in.get();
      stamp.chunked = true;
      stamp.last = false;
      in >> stamp.payload;
      in.get();
      in >> stamp.chunkIndex;
    }
    std::uint64_t size = 1;
    std::string faults;
    for (int option = in.get(); option != EOF; option = in.get()) {
      if (option == '!') stamp.last = true;
      if (option == 'r') in >> stamp.refusedBefore;
      if (option == 'x') stamp.abandons = true;
      if (option == 'b') in >> size;
      if (option == 'V') stamp.version = 77;
      if (option == 't' || option == 'i' || option == 'n') faults += static_cast<char>(option);
    }
    Frame frame = makeFrame(stamp, _now, size);
    if (faults == "t") frame.attributes[MessageAttributes::UnCompressedSize] = "99";
    if (faults == "i") frame.attributes[MessageAttributes::CompressionType] = 1L;
    if (faults == "n") frame.attributes.clear();
    _sequencer.accept(std::move(frame));
  }

  void drain() {
    while (auto action = _sequencer.next()) {
      if (const auto* deliver = std::get_if<PayloadSequencer::Deliver>(&*action)) {
        _delivered = deliver->frame.stamp;
        write(std::string(1, static_cast<char>(_delivered.producer)) + std::to_string(_delivered.sequence));
      } else if (const auto* end = std::get_if<PayloadSequencer::EndPayload>(&*action)) {
        write(std::string(1, static_cast<char>(end->stamp.producer)) + ":end");
      } else {
        const auto& loss = std::get<PayloadSequencer::Loss>(*action);
        const std::string count = "-" + std::to_string(loss.messages);
        write(loss.text.empty() ? "(" + count + ")" : count);
      }
    }
  }

  void write(const std::string& word) { _out += (_out.empty() ? "" : " ") + word; }

  PayloadSequencer _sequencer;
  TimePoint _now{std::chrono::hours(1)};
  Stamp _delivered;
  std::string _out;
};

struct Scenario {
  const char* name;
  const char* events;
  const char* outcome;
};

void PrintTo(const Scenario& scenario, std::ostream* out) {
  *out << scenario.events;
}

class SequencerScenario : public testing::TestWithParam<Scenario> {};

TEST_P(SequencerScenario, ComesOutAsTold) {
  PayloadSequencer::Limits limits;
  limits.payloadBytes = 100;
  limits.waitingBytes = 100;
  EXPECT_EQ(Script(limits).run(GetParam().events), GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Order, SequencerScenario,
    testing::Values(
        Scenario{"PlainMessagesPass", "A1 B1 A2", "A1 B1 A2"},
        Scenario{"PiecesOfOthersWait", "A1/1.0 B1/1.0 B2/1.1! A2/1.1!", "A1 A2 B1 B2"},
        Scenario{"PlainMessagesOfOthersPass", "A1/1.0 B1 A2/1.1!", "A1 B1 A2"},
        Scenario{"PlainMessagesStayInTheirPlace", "A1/1.0 A2 A3/1.1!", "A1 A2 A3"},
        Scenario{"PlainMessageWaitsBehindOwnPieces", "A1/1.0 B1/1.0! B2 C1 A2/1.1!", "A1 C1 A2 B1 B2"},
        Scenario{"PayloadsProceedInTheOrderInWhichTheyWaited", "A1/1.0 C1/1.0! B1/1.0! A2/1.1!",
                 "A1 A2 C1 B1"},
        Scenario{"ProducersTakeTurns", "A1/1.0 B1/1.0! B2/2.0! C1/1.0! A2/1.1!", "A1 A2 B1 C1 B2"},
        Scenario{"UnfinishedPayloadTakesItsTurn", "A1/1.0 B1/1.0 C1/1.0! A2/1.1! B2/1.1!", "A1 A2 B1 B2 C1"},
        Scenario{"CopyIsDropped", "A1 A2 A1 A2 A3", "A1 A2 A3"}),
    [](const auto& info) { return info.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Gaps, SequencerScenario,
    testing::Values(Scenario{"MissingPlainMessagesAreCounted", "A1 A4", "A1 -2 A4"},
                    Scenario{"GapEndsThePayloadInProgress", "A1/1.0 A3/1.2! A4/2.0!", "A1 -1 (-1) A:end A4"},
                    Scenario{"MissingLastPieceEndsThePayload", "A1/1.0 A3/2.0!", "A1 -1 A:end A3"},
                    Scenario{"GapInAWaitingPayloadDropsIt", "A1/1.0 B1/1.0 B2 B4/1.2! A2/1.1!",
                             "A1 -2 (-1) A2 B2"},
                    Scenario{"GapLetsTheNextPayloadProceed", "A1/1.0 B1/1.0! A3/1.2!", "A1 -1 (-1) A:end B1"},
                    Scenario{"WhatWasBeforeTheStartIsNotMissing", "A7 A8", "A7 A8"},
                    Scenario{"PayloadWithoutItsBeginningIsDropped", "A7/3.2 A8/3.3! A9/4.0!", "-1 (-1) A9"},
                    Scenario{"MessageOlderThanTheStartIsLost", "A5 A3 A6", "A5 -1 A6"},
                    Scenario{"RefusedMessagesAreNotMissing", "A1 A3r1", "A1 A3"},
                    Scenario{"MissingBeforeRefusedIsCounted", "A1 A5r2", "A1 -1 A5"},
                    Scenario{"RefusedPlainMessageHarmsNoPayload", "A1/1.0 A3/1.1!r1", "A1 A3"},
                    Scenario{"AbandonedPayloadEnds", "A1/1.0 aA B1/1.0!", "A1 -0 A:end B1"},
                    Scenario{"StampTellsOfAbandonment", "A1/1.0 A3r1x A4/2.0!", "A1 -0 A:end A3 A4"},
                    Scenario{"LeftUnfinishedForAnother", "A1/1.0 A2/2.0!", "A1 -0 A:end A2"}),
    [](const auto& info) { return info.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Faults, SequencerScenario,
    testing::Values(
        Scenario{"VanishedProducersPayloadEnds", "A1/1.0 vA B1/1.0!", "A1 -0 A:end B1"},
        Scenario{"WholePayloadOfAVanishedProducerArrives", "A1/1.0 B1/1.0 B2/1.1! vB A2/1.1!", "A1 A2 B1 B2"},
        Scenario{"WaitingPayloadOfAVanishedProducerIsDropped", "A1/1.0 B1/1.0 vB A2/1.1!", "A1 -1 A2"},
        Scenario{"SilentPayloadEndsAfterTenSeconds", "A1/1.0 +9999 tick +1 tick A2/1.1!",
                 "A1 tick tick -0 A:end (-1)"},
        Scenario{"EachPieceStartsTheSilenceAnew", "A1/1.0 +6000 A2/1.1 +9999 tick A3/1.2!", "A1 A2 tick A3"},
        Scenario{"SilenceShowsInTheArrivalOfOthers", "A1/1.0 +10000 B1/1.0!", "A1 -0 A:end B1"},
        Scenario{"WaitingPayloadFallsSilentToo", "A1/1.0 B1/1.0 +6000 A2/1.1 +4000 tick A3/1.2!",
                 "A1 A2 tick -1 A3"},
        Scenario{"OverlongPayloadEnds", "A1/1.0b60 A2/1.1b60 A3/1.2! A4/2.0!", "A1 -1 A:end (-1) A4"},
        Scenario{"TooMuchWaitingLosesThePayload", "A1/1.0 B1/1.0b60 B2/1.1b60 B3/1.2! A2/1.1!",
                 "A1 -2 (-1) A2"},
        Scenario{"TextAsSizeEndsThePayload", "A1/1.0 A2/1.1t A3/1.2! A4", "A1 -1 A:end (-1) A4"},
        Scenario{"IntegerAsKindIsLost", "A1i A2", "-1 A2"},
        Scenario{"StampAgainstAttributesIsLost", "A1/1.0n A2/1.1! A3", "-1 (-1) A3"},
        Scenario{"PieceOutOfItsPlaceEndsThePayload", "A1/1.0 A2/1.2 A3/1.3!", "A1 -1 A:end (-1)"},
        Scenario{"UnknownVersionIsLost", "A1V B1", "-1 B1"},
        Scenario{"FailedDeliveryEndsThePayload", "A1/1.0 fail A2/1.1 A3/1.2! A4/2.0!",
                 "A1 fail A:end (-1) (-1) A4"},
        Scenario{"FailedLastPieceEndsNothing", "A1/1.0 A2/1.1! fail A3", "A1 A2 fail A3"}),
    [](const auto& info) { return info.param.name; });

TEST(PayloadSequencer, RemembersABoundedNumberOfProducersAndKeepsThoseWithAnOpenPayload) {
  PayloadSequencer::Limits limits;
  limits.producers = 8;
  PayloadSequencer sequencer(limits);
  const TimePoint now{std::chrono::hours(1)};
  Stamp begun{.producer = 1, .sequence = 1, .payload = 1, .chunked = true, .last = false};
  sequencer.accept(makeFrame(begun, now));
  for (std::uint64_t producer = 2; producer < 100; ++producer) {
    sequencer.accept(makeFrame(Stamp{.producer = producer, .sequence = 1, .payload = 1}, now));
  }
  EXPECT_LE(sequencer.producersKnown(), 8U);
  EXPECT_EQ(sequencer.activeProducer(), 1U);
}

/// Frames of several producers, some lost on the way, in any interleaving: what comes out is checked against
/// the rules themselves.
class RandomTraffic {
 public:
  explicit RandomTraffic(unsigned seed) : _random(seed) {}

  void run() {
    for (int step = 0; step < 4000; ++step) {
      sendOne(1 + _random() % producers);
      drain();
    }
    for (std::uint64_t producer = 1; producer <= producers; ++producer) _sequencer.producerVanished(producer);
    drain();
    EXPECT_EQ(_open, 0U) << "a payload was never ended";
    EXPECT_LE(_accepted, _delivered + _lost);
    EXPECT_GT(_delivered, _accepted / 4);
  }

 private:
  static constexpr std::uint64_t producers = 5;

  void sendOne(std::uint64_t producer) {
    Stamp& stamp = _next[producer];
    stamp.producer = producer;
    ++stamp.sequence;
    if (stamp.chunked && !stamp.last) {
      ++stamp.chunkIndex;
    } else {
      ++stamp.payload;
      stamp.chunkIndex = 0;
      stamp.chunked = _random() % 2 == 0;
    }
    stamp.last = !stamp.chunked || _random() % 4 == 0;
    if (_random() % 50 == 0) return;  // lost on the way
    ++_accepted;
    _sequencer.accept(makeFrame(stamp, _now += std::chrono::milliseconds(1)));
  }

  void drain() {
    while (auto action = _sequencer.next()) {
      if (const auto* deliver = std::get_if<PayloadSequencer::Deliver>(&*action)) {
        check(deliver->frame.stamp);
      } else if (const auto* end = std::get_if<PayloadSequencer::EndPayload>(&*action)) {
        ASSERT_EQ(_open, end->stamp.producer);
        _open = 0;
      } else {
        _lost += std::get<PayloadSequencer::Loss>(*action).messages;
      }
    }
  }

  void check(const Stamp& stamp) {
    ++_delivered;
    ASSERT_GT(stamp.sequence, _newest[stamp.producer]) << "out of order";
    _newest[stamp.producer] = stamp.sequence;
    if (!stamp.chunked) return;
    if (_open == 0) {
      ASSERT_EQ(stamp.chunkIndex, 0U);
    } else {
      ASSERT_EQ(stamp.producer, _open) << "payloads are interleaved";
      ASSERT_EQ(stamp.payload, _payload);
      ASSERT_EQ(stamp.chunkIndex, _index + 1) << "a piece is missing";
    }
    _open = stamp.last ? 0 : stamp.producer;
    _payload = stamp.payload;
    _index = stamp.chunkIndex;
  }

  std::mt19937 _random;
  PayloadSequencer _sequencer;
  TimePoint _now{std::chrono::hours(1)};
  std::map<std::uint64_t, Stamp> _next;
  std::map<std::uint64_t, std::uint64_t> _newest;
  std::uint64_t _open = 0, _payload = 0, _index = 0;
  std::uint64_t _accepted = 0, _delivered = 0, _lost = 0;
};

TEST(PayloadSequencer, NeverInterleavesOrTearsPayloadsWhateverIsLost) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    RandomTraffic(seed).run();
  }
}

}  // namespace
}  // namespace kestrel::streams
