#include "TransportSuite.hpp"

#include <gtest/gtest.h>

#include <kestrel/datastreaming/Keys.hpp>

namespace kestrel::streams {

using datastreaming::AttributeMap;
using datastreaming::DataSteamingConfig;
using datastreaming::MessageAttributes;
using testing::ElementsAre;

datastreaming::DataCallback Inbox::callback() {
  return
      [this](const std::uint8_t* data, std::uint64_t size, const std::string& id, AttributeMap& attributes) {
        add({std::string(reinterpret_cast<const char*>(data), size), id, std::move(attributes)});
      };
}

void Inbox::add(Received message) {
  const std::lock_guard lock(_mutex);
  _messages.push_back(std::move(message));
  _changed.notify_all();
}

std::vector<Received> Inbox::wait(std::size_t count) {
  std::unique_lock lock(_mutex);
  _changed.wait_for(lock, patience, [&] { return _messages.size() >= count; });
  EXPECT_GE(_messages.size(), count) << "waited for more messages";
  auto result = _messages;
  result.resize(std::max(count, result.size()));
  return result;
}

std::vector<std::string> Inbox::waitTexts(std::size_t count) {
  std::vector<std::string> texts;
  for (const auto& message : wait(count)) texts.push_back(message.text);
  return texts;
}

std::size_t Inbox::size() const {
  const std::lock_guard lock(_mutex);
  return _messages.size();
}

datastreaming::DataCallback Joiner::callback() {
  return
      [this](const std::uint8_t* data, std::uint64_t size, const std::string& id, AttributeMap& attributes) {
        std::string text(reinterpret_cast<const char*>(data), size);
        if (attributes.contains(MessageAttributes::CompressionType)) {
          _pieces += text;
          if (std::get<long>(attributes.at(MessageAttributes::UnCompressedSize)) > 0) return;
          text = std::exchange(_pieces, {});
        }
        _inbox.add({text, id, std::move(attributes)});
      };
}

AttributeMap pieceAttributes(bool last) {
  return {{MessageAttributes::CompressionType, "chunk"},
          {MessageAttributes::UnCompressedSize, last ? 0L : 1L}};
}

std::shared_future<std::string> sendText(datastreaming::Producer& producer, const std::string& text,
                                         const AttributeMap& attributes) {
  return producer.send(reinterpret_cast<const std::uint8_t*>(text.data()), text.size(), attributes);
}

std::vector<std::shared_future<std::string>> sendPieces(datastreaming::Producer& producer,
                                                        const std::string& text, std::size_t pieceSize) {
  std::vector<std::shared_future<std::string>> futures;
  for (std::size_t at = 0; at < text.size(); at += pieceSize) {
    const bool last = at + pieceSize >= text.size();
    futures.push_back(sendText(producer, text.substr(at, pieceSize), pieceAttributes(last)));
  }
  return futures;
}

std::string outcomeOf(const std::shared_future<std::string>& future) {
  if (!ready(future, "the outcome of a message")) return "not ready";
  try {
    (void)future.get();
    return "accepted";
  } catch (const std::exception& error) {
    return error.what();
  }
}

TransportSuite::Producer TransportSuite::startProducer(const Stream& stream, const std::string& acknowledge) {
  auto producer = _factory->createProducer(stream, {{DataSteamingConfig::PRODUCER_ACK, acknowledge}});
  producer->start().get();
  return producer;
}

TransportSuite::Consumer TransportSuite::startConsumer(const Stream& stream,
                                                       datastreaming::DataCallback callback) {
  auto consumer = _factory->createConsumer(stream);
  consumer->setDataCallback(std::move(callback));
  consumer->start().get();
  return consumer;
}

TEST_P(TransportSuite, BytesAndAttributesArriveAsTheyWereSent) {
  Inbox inbox;
  const auto consumer = startConsumer(open("s"), inbox.callback());
  const auto producer = startProducer(open("s"));
  const std::string binary("\0\xff\r\n:\x80", 6);
  const AttributeMap attributes{
      {"number", -9223372036854775807L}, {"text", binary}, {"key: " + binary, ""}, {"TIMESTAMP", 0L}};
  const std::string large(100'000, 'x');
  (void)sendText(*producer, "", attributes);
  (void)sendText(*producer, binary);
  (void)sendText(*producer, large);
  const auto received = inbox.wait(3);
  EXPECT_EQ(received[0].attributes, attributes);
  EXPECT_THAT(inbox.waitTexts(3), ElementsAre("", binary, large));
}

TEST_P(TransportSuite, OneThreadsMessagesArriveInTheirOrder) {
  Inbox inbox;
  const auto consumer = startConsumer(open("s"), inbox.callback());
  const auto producer = startProducer(open("s"));
  constexpr std::size_t count = 500;
  for (std::size_t i = 0; i < count; ++i) (void)sendText(*producer, std::to_string(i));
  const auto texts = inbox.waitTexts(count);
  for (std::size_t i = 0; i < count; ++i) ASSERT_EQ(texts[i], std::to_string(i));
}

TEST_P(TransportSuite, EachConsumerGetsEveryMessageOrASecondOneIsRefused) {
  Inbox first, second;
  auto one = startConsumer(open("s"), first.callback());
  if (!GetParam().broadcasts) {
    EXPECT_THAT([&] { (void)startConsumer(open("s"), second.callback()); },
                testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr("already has a consumer")));
    (void)sendText(*startProducer(open("s")), "a");
    EXPECT_THAT(first.waitTexts(1), ElementsAre("a"));
    one = nullptr;
    one = startConsumer(open("s"), second.callback());
    (void)sendText(*startProducer(open("s")), "b");
    EXPECT_THAT(second.waitTexts(1), ElementsAre("b")) << "what was acknowledged is done with";
    return;
  }
  const auto two = startConsumer(open("s"), second.callback());
  const auto producer = startProducer(open("s"));
  (void)sendText(*producer, "a", {{"key", "value"}});
  (void)sendText(*producer, "b");
  EXPECT_THAT(first.waitTexts(2), ElementsAre("a", "b"));
  EXPECT_THAT(second.waitTexts(2), ElementsAre("a", "b"));
  EXPECT_TRUE(second.wait(1)[0].attributes.contains("key")) << "the other consumer moved from its own copy";
}

TEST_P(TransportSuite, WhatIsSentBeforeAConsumerComesIsKeptOrGone) {
  const auto producer = startProducer(open("s"), "YES");
  (void)outcomeOf(sendText(*producer, "early"));
  Inbox inbox;
  const auto consumer = startConsumer(open("s"), inbox.callback());
  (void)sendText(*producer, "late");
  if (GetParam().keepsBacklog) {
    EXPECT_THAT(inbox.waitTexts(2), ElementsAre("early", "late"));
  } else {
    EXPECT_THAT(inbox.waitTexts(1), ElementsAre("late"));
  }
}

TEST_P(TransportSuite, AcknowledgementIsTheIdThatTheConsumerSeesOrTheNumberInTheStore) {
  Inbox inbox;
  const auto consumer = startConsumer(open("s"), inbox.callback());
  const auto asking = startProducer(open("s"), "YES");
  const auto plain = startProducer(open("s"), "NO");
  const auto first = sendText(*asking, "a");
  const auto second = sendText(*asking, "b");
  ASSERT_TRUE(ready(second, "the second acknowledgement"));
  const auto received = inbox.wait(2);
  EXPECT_EQ(first.get(), GetParam().acknowledgesWithId ? received[0].id : "1");
  EXPECT_EQ(second.get(), GetParam().acknowledgesWithId ? received[1].id : "2");
  EXPECT_NE(first.get(), second.get());
  EXPECT_EQ(sendText(*plain, "c").get(), "");
}

TEST_P(TransportSuite, AnonymousStreamsAreSeparate) {
  Inbox first, second;
  const auto one = open("");
  const auto two = open("");
  const auto consumerOne = startConsumer(one, first.callback());
  const auto consumerTwo = startConsumer(two, second.callback());
  const auto producerOne = startProducer(one);
  const auto producerTwo = startProducer(two);
  (void)sendText(*producerOne, "one");
  (void)sendText(*producerTwo, "two");
  EXPECT_THAT(first.waitTexts(1), ElementsAre("one"));
  EXPECT_THAT(second.waitTexts(1), ElementsAre("two"));
  EXPECT_EQ(one->id(), "");
}

TEST_P(TransportSuite, IdentifiersMayHoldAnyBytes) {
  const std::string odd("a.b *>\0\xff/..", 11);
  Inbox inbox, other;
  const auto consumer = startConsumer(open(odd), inbox.callback());
  const auto bystander = startConsumer(open("a.b"), other.callback());
  const auto producer = startProducer(open(odd));
  (void)sendText(*producer, "x");
  EXPECT_THAT(inbox.waitTexts(1), ElementsAre("x"));
  EXPECT_EQ(other.size(), 0U);
  EXPECT_EQ(open(odd)->id(), odd);
}

TEST_P(TransportSuite, StatisticsCountUsersBytesBothWays) {
  Inbox inbox;
  const auto stream = open("s");
  const auto consumer = startConsumer(stream, inbox.callback());
  const auto producer = startProducer(stream);
  (void)sendText(*producer, "12345", {{"key", "not counted"}});
  sendPieces(*producer, "abcdef", 2);
  inbox.wait(2);
  const auto counted = statistics();
  EXPECT_EQ(counted.streamId, "s");
  EXPECT_EQ(counted.messagesSent, 4U);
  EXPECT_EQ(counted.bytesSent, 11U);
  EXPECT_EQ(counted.messagesReceived, 4U);
  EXPECT_EQ(counted.bytesReceived, 11U);
  EXPECT_EQ(counted.payloadsReceived, 2U);
  EXPECT_EQ(counted.refused + counted.lost, 0U);
}

TEST_P(TransportSuite, PayloadsOfManyProducersArriveWhole) {
  constexpr std::size_t producers = 8;
  constexpr std::size_t payloads = 5;
  Inbox inbox;
  Joiner joiner(inbox);
  auto roomy = GetParam().make(64 << 20);
  _factory = roomy->makeFactory();
  const auto stream = open("s");
  const auto consumer = startConsumer(stream, joiner.callback());
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < producers; ++i) {
    threads.emplace_back([&, i, producer = startProducer(stream)] {
      const char letter = static_cast<char>('a' + i);
      for (std::size_t k = 1; k <= payloads; ++k)
        sendPieces(*producer, std::string(10'000 * k + i, letter), 1000);
      inbox.wait(producers * payloads);  // its departure would be none of this test's business
    });
  }
  for (auto& thread : threads) thread.join();
  std::map<char, std::size_t> next;
  for (const auto& text : inbox.waitTexts(producers * payloads)) {
    ASSERT_FALSE(text.empty());
    ASSERT_EQ(text.find_first_not_of(text[0]), std::string::npos) << "payloads are mixed";
    const std::size_t number = ++next[text[0]];
    ASSERT_EQ(text.size(), 10'000 * number + static_cast<std::size_t>(text[0] - 'a'));
  }
  consumer->setErrorCallback({});
  EXPECT_EQ(statistics().lost, 0U);
}

}  // namespace kestrel::streams
