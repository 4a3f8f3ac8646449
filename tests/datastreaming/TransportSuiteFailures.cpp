#include <gtest/gtest.h>

#include <atomic>
#include <kestrel/datastreaming/Keys.hpp>

#include "TransportSuite.hpp"

namespace kestrel::streams {

using datastreaming::AttributeMap;
using datastreaming::MessageAttributes;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

/// Collects what an error callback is told, and the threads that told it.
struct Errors {
  Inbox texts;
  std::atomic<bool> onSender{false};
  std::thread::id sender = std::this_thread::get_id();

  datastreaming::ErrorCallback callback() {
    return [this](const std::exception& error) {
      if (std::this_thread::get_id() == sender) onSender = true;
      texts.add({error.what(), "", {}});
    };
  }
};

/// A data callback that waits inside its first message until it is let go on.
struct Blocker {
  Door entered, go;
  std::atomic<bool> first{true};

  datastreaming::DataCallback wrap(datastreaming::DataCallback inner) {
    return [this, inner = std::move(inner)](const std::uint8_t* data, std::uint64_t size,
                                            const std::string& id, AttributeMap& attributes) {
      inner(data, size, id, attributes);
      if (!first.exchange(false)) return;
      entered.open();
      go.pass("the test to go on");
    };
  }
};

}  // namespace

TEST_P(TransportSuite, TooLargeMessageIsRefusedOnceAndReportedOnAnotherThread) {
  Inbox inbox;
  Blocker blocker;
  Errors errors;
  const auto stream = open("news");
  const auto consumer = startConsumer(stream, blocker.wrap(inbox.callback()));
  const auto producer = startProducer(stream);
  producer->setErrorCallback(errors.callback());
  (void)sendText(*producer, "first");
  blocker.entered.pass("the first message");
  const auto refused = sendText(*producer, tooLarge);
  EXPECT_THAT(outcomeOf(refused),
              AllOf(HasSubstr("news"), HasSubstr("1200000"), HasSubstr(GetParam().mostForOne)));
  const auto accepted = sendText(*producer, "second");
  EXPECT_EQ(outcomeOf(accepted), "accepted");
  EXPECT_EQ(errors.texts.wait(1)[0].text, outcomeOf(refused));
  blocker.go.open();
  EXPECT_THAT(inbox.waitTexts(2), ElementsAre("first", "second"));
  EXPECT_FALSE(errors.onSender);
  EXPECT_EQ(errors.texts.size(), 1U);
  EXPECT_EQ(statistics().refused, 1U);
  EXPECT_EQ(statistics().lost, 0U);
  EXPECT_EQ(statistics().lastError, outcomeOf(refused));
}

TEST_P(TransportSuite, RefusedPieceTakesTheRestOfItsPayloadAndNothingElse) {
  Inbox inbox;
  Blocker blocker;
  Errors errors;
  const auto stream = open("s");
  const auto consumer = startConsumer(stream, blocker.wrap(inbox.callback()));
  const auto producer = startProducer(stream);
  producer->setErrorCallback(errors.callback());
  (void)sendText(*producer, "held up");
  blocker.entered.pass("the first message");
  (void)sendText(*producer, "p1", pieceAttributes(false));
  (void)sendText(*producer, tooLarge, pieceAttributes(false));
  EXPECT_THAT(outcomeOf(sendText(*producer, "p3", pieceAttributes(false))), HasSubstr("earlier piece"));
  EXPECT_THAT(outcomeOf(sendText(*producer, "p4", pieceAttributes(true))), HasSubstr("earlier piece"));
  EXPECT_EQ(outcomeOf(sendText(*producer, "q1", pieceAttributes(false))), "accepted");
  EXPECT_EQ(outcomeOf(sendText(*producer, "q2", pieceAttributes(true))), "accepted");
  blocker.go.open();
  EXPECT_THAT(inbox.waitTexts(2), ElementsAre("held up", "q1q2"));
  EXPECT_EQ(inbox.wait(2)[1].attributes, pieceAttributes(true));
  errors.texts.wait(1);
  EXPECT_EQ(statistics().refused, 3U);
  EXPECT_EQ(statistics().lost, 1U) << "the piece that was accepted";
  EXPECT_EQ(errors.texts.size(), 1U) << "reported once for the payload";
}

struct WrongAttribute {
  AttributeMap attributes;
  std::string key;
};

TEST_P(TransportSuite, WrongTypeUnderAChunkKeyIsRefusedBySend) {
  Inbox inbox;
  Errors errors;
  const auto stream = open("s");
  const auto consumer = startConsumer(stream, inbox.callback());
  const auto producer = startProducer(stream);
  producer->setErrorCallback(errors.callback());
  const auto kind = sendText(*producer, "a", {{MessageAttributes::CompressionType, 1L}});
  EXPECT_THAT(outcomeOf(kind), AllOf(HasSubstr("COMPRESSIONTYPE"), HasSubstr("text"), HasSubstr("integer")));
  AttributeMap sized = pieceAttributes(false);
  sized[MessageAttributes::UnCompressedSize] = "10";
  const auto size = sendText(*producer, "b", sized);
  EXPECT_THAT(outcomeOf(size), AllOf(HasSubstr("UNCOMPRESSEDSIZE"), HasSubstr("integer"), HasSubstr("text")));
  EXPECT_THAT(outcomeOf(sendText(*producer, "c", pieceAttributes(true))), HasSubstr("earlier piece"));
  (void)sendText(*producer, "good", {{MessageAttributes::CompressionType, "none"}});
  EXPECT_THAT(inbox.waitTexts(1), ElementsAre("good"));
  EXPECT_EQ(errors.texts.waitTexts(2).size(), 2U);
}

TEST_P(TransportSuite, CallbackThatThrowsLosesOnlyItsMessage) {
  Inbox inbox;
  Errors errors;
  const auto stream = open("s");
  const auto consumer = _factory->createConsumer(stream);
  consumer->setErrorCallback(errors.callback());
  consumer->setDataCallback(
      [&](const std::uint8_t* data, std::uint64_t size, const std::string& id, AttributeMap& a) {
        if (size == 3) throw std::runtime_error("cannot read it");
        inbox.callback()(data, size, id, a);
      });
  consumer->start().get();
  const auto producer = startProducer(stream);
  (void)sendText(*producer, "a");
  (void)sendText(*producer, "bad");
  (void)sendText(*producer, "b");
  EXPECT_THAT(inbox.waitTexts(2), ElementsAre("a", "b"));
  EXPECT_THAT(errors.texts.waitTexts(1)[0], AllOf(HasSubstr("'s'"), HasSubstr("cannot read it")));
  EXPECT_EQ(statistics().lost, 1U);
}

TEST_P(TransportSuite, SendBeforeStartIsRefusedAndConsumerWithoutCallbackDoesNotStart) {
  const auto stream = open("s");
  const auto producer = _factory->createProducer(stream, {});
  EXPECT_THAT(outcomeOf(sendText(*producer, "a")), HasSubstr("not been started"));
  const auto consumer = _factory->createConsumer(stream);
  EXPECT_THROW(consumer->start().get(), std::logic_error);
  Inbox inbox;
  consumer->setDataCallback(inbox.callback());
  consumer->start().get();
  producer->start().get();
  (void)sendText(*producer, "b");
  EXPECT_THAT(inbox.waitTexts(1), ElementsAre("b"));
  EXPECT_THROW(consumer->setDataCallback(inbox.callback()), std::logic_error);
}

}  // namespace kestrel::streams
