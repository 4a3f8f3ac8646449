#include "transports/nats/NatsReceiver.hpp"

#include <gmock/gmock.h>

#include <kestrel/datastreaming/Keys.hpp>

#include "transports/nats/live/Announcement.hpp"
#include "transports/nats/wire/OutgoingMessage.hpp"

namespace kestrel::streams {
namespace {

using datastreaming::MessageAttributes;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// Is given its messages by hand.
class FedReceiver final : public NatsReceiver {
 public:
  FedReceiver()
      : NatsReceiver(std::make_shared<StreamContext>("s", std::make_shared<ErrorReporter>()), nullptr, {}) {
    _pipeline->setDataCallback([](const auto*, auto, const auto&, auto&) {});
    _pipeline->begin(TimePoint());
  }
  void open() override {}
  void run() override {}
  void interrupt() override {}
  void feed(std::shared_ptr<natsMsg> message) { deliver(identify(std::move(message))); }
  using NatsReceiver::passTime, NatsReceiver::_context;
};

class NatsReceiverTest : public testing::Test {
 protected:
  NatsReceiverTest() { nats_Open(-1); }  // the client frees messages on a thread of its own

  void message(const Stamp& stamp, const datastreaming::AttributeMap& attributes = {}) {
    auto made = makeMessage({"s", "", stamp, nullptr, 0, attributes}, 1'000'000);
    _receiver.feed(std::get<OutgoingMessage>(made).message);
  }
  void piece(std::uint64_t producer) {
    message({.producer = producer, .sequence = 1, .payload = 1, .chunked = true, .last = false},
            {{MessageAttributes::CompressionType, "chunk"}, {MessageAttributes::UnCompressedSize, 1L}});
  }
  void news(ProducerEvent::Kind kind, std::uint64_t producer, std::uint64_t last) {
    _receiver.feed(makeEvent("s", {kind, producer, last, milliseconds(0)}));
  }
  [[nodiscard]] std::uint64_t lost() const { return _receiver._context->counters.snapshot("s").lost; }

  FedReceiver _receiver;
};

TEST_F(NatsReceiverTest, ProducersWordTellsOfWhatWasLostBehindOrBeforeWhatWasHeard) {
  message({.producer = 1, .sequence = 1, .payload = 1});
  news(ProducerEvent::Kind::idle, 1, 3);
  EXPECT_EQ(lost(), 2U);
  news(ProducerEvent::Kind::gone, 1, 4);
  EXPECT_EQ(lost(), 3U);
  news(ProducerEvent::Kind::gone, 2, 5);
  EXPECT_EQ(lost(), 8U) << "nothing of it was heard";
  message({.producer = 3, .sequence = 7, .payload = 7, .age = 0});
  EXPECT_EQ(lost(), 14U) << "it is younger than this receiver, so all of it should have come";
}

TEST_F(NatsReceiverTest, OutageIsNoSilenceOfAPayload) {
  piece(1);
  _receiver.passTime(false);
  const auto deadline = _receiver.pipeline().deadline();
  std::this_thread::sleep_for(milliseconds(2));
  _receiver.passTime(true);
  EXPECT_GE(*_receiver.pipeline().deadline(), *deadline + milliseconds(2));
}

TEST_F(NatsReceiverTest, PayloadEndsWhenItsProducerSaysSoOrGoes) {
  for (const auto& [producer, kind] :
       {std::pair{1, ProducerEvent::Kind::abandoned}, {2, ProducerEvent::Kind::gone}}) {
    piece(producer);
    EXPECT_TRUE(_receiver.pipeline().deadline()) << "it is waited for";
    news(kind, producer, 1);
    EXPECT_FALSE(_receiver.pipeline().deadline());
  }
}

TEST(ArrivalClock, StandsStillForWhatWaitsAndMovesOnceThatIsDone) {
  const TimePoint start{seconds(100)};
  ArrivalClock clock(start);
  struct Turn {
    int asked, now;
    std::uint64_t waiting;
    int reached, earliest;  // what is to be known then, in seconds from the start
  };
  for (const Turn& turn : {Turn{20, 20, 2, 0, 0},  // three came while nobody looked
                           {40, 40, 5, 0, 0},
                           {60, 60, 4, 20, 0},  // those two are done
                           {61, 61, 0, 61, 0},
                           {70, 70, 1, 61, 61},
                           {70, 71, 0, 71, 71},  // it was waited for
                           {72, 75, 3, 71, 75}}) {
    clock.advance(start + seconds(turn.asked), start + seconds(turn.now), turn.waiting);
    EXPECT_EQ(clock.reached() - start, seconds(turn.reached)) << turn.now;
    EXPECT_EQ(clock.earliest() - start, seconds(turn.earliest)) << turn.now;
  }
}

class AnnouncementTest : public testing::Test {
 protected:
  using Kind = ProducerEvent::Kind;

  /// What it says when so much time has passed, and its last message was that one.
  std::optional<Kind> saysAfter(milliseconds time, std::uint64_t last) {
    const auto kind = _announcement.due(last, _now += time);
    if (kind) _announcement.said(*kind, _now);
    return kind;
  }

  TimePoint _now{seconds(100)};
  Announcement _announcement;
};

TEST_F(AnnouncementTest, IdleProducerSaysHowFarItHasComeMoreAndMoreSeldom) {
  std::vector<int> said;
  for (int tenths = 0; tenths < 1000; ++tenths) {
    if (saysAfter(milliseconds(100), 5) == Kind::idle) said.push_back(tenths / 10);
  }
  EXPECT_THAT(said, testing::ElementsAre(1, 3, 7, 15, 31, 61, 91));
  EXPECT_FALSE(saysAfter(seconds(60), 6)) << "its messages speak for themselves";
  EXPECT_EQ(saysAfter(seconds(1), 6), Kind::idle);
  _announcement.restart();
  EXPECT_EQ(saysAfter({}, 6), Kind::idle) << "what was said may be lost";
}

TEST_F(AnnouncementTest, LastWordIsRepeatedUntilItIsKnownToHaveArrived) {
  EXPECT_FALSE(saysAfter(seconds(9), 0)) << "nobody has heard of it";
  _announcement.confirm();  // of an earlier question
  _announcement.retire();
  EXPECT_EQ(saysAfter({}, 5), Kind::gone);
  EXPECT_FALSE(saysAfter(seconds(60), 5));
  _announcement.restart();
  EXPECT_EQ(saysAfter({}, 5), Kind::gone);
  EXPECT_FALSE(_announcement.settled());
  _announcement.confirm();
  EXPECT_TRUE(_announcement.settled());
}

}  // namespace
}  // namespace kestrel::streams
