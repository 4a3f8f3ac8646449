#include "TransportSuite.hpp"

#include <gtest/gtest.h>

#include <kestrel/datastreaming/Keys.hpp>

namespace kestrel::streams {

using datastreaming::AttributeMap;
using datastreaming::DataSteamingConfig;
using datastreaming::MessageAttributes;
using testing::ElementsAre;
using testing::HasSubstr;

datastreaming::DataCallback Inbox::callback() {
  return
      [this](const std::uint8_t* data, std::uint64_t size, const std::string& id, AttributeMap& attributes) {
        add({std::string(reinterpret_cast<const char*>(data), size), id, std::move(attributes)});
      };
}

void Inbox::add(Received message) {
  const std::lock_guard lock(_mutex);
  _messages.push_back(std::move(message));
}

std::vector<Received> Inbox::wait(std::size_t count) {
  EXPECT_TRUE(eventually("more messages", [&] { return size() >= count; }));
  const std::lock_guard lock(_mutex);
  auto result = _messages;
  result.resize(std::max(count, result.size()));
  return result;
}

std::vector<std::string> Inbox::waitTexts(std::size_t count) {
  std::vector<std::string> texts;
  for (const auto& message : wait(count)) texts.push_back(message.text);
  return texts;
}

bool Inbox::has(const std::string& text) const {
  const std::lock_guard lock(_mutex);
  return std::ranges::find(_messages, text, &Received::text) != _messages.end();
}

std::size_t Inbox::size() const {
  const std::lock_guard lock(_mutex);
  return _messages.size();
}

std::shared_ptr<datastreaming::Producer> startProducer(datastreaming::StreamsFactory& factory,
                                                       const std::shared_ptr<datastreaming::Stream>& stream,
                                                       const std::string& acknowledge) {
  auto producer = factory.createProducer(stream, {{DataSteamingConfig::PRODUCER_ACK, acknowledge}});
  producer->start().get();
  return producer;
}

std::shared_ptr<datastreaming::Consumer> startConsumer(datastreaming::StreamsFactory& factory,
                                                       const std::shared_ptr<datastreaming::Stream>& stream,
                                                       datastreaming::DataCallback callback) {
  auto consumer = factory.createConsumer(stream);
  consumer->setDataCallback(std::move(callback));
  consumer->start().get();
  return consumer;
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

TEST_P(TransportSuite, BytesAndAttributesArriveAsTheyWereSentAndAreCountedBothWays) {
  const std::string binary("a.b *>\0\xff\r\n:\x80/..", 15), large(100'000, 'x');
  begin(binary);
  Inbox other;
  const auto bystander = consumerOf("a.b", other.callback()), nameless = consumerOf("", other.callback());
  const AttributeMap attributes{
      {"number", -9223372036854775807L}, {"text", binary}, {"key: " + binary, ""}, {"TIMESTAMP", 0L}};
  (void)sendText(*_producer, "", attributes);
  (void)sendText(*_producer, binary);
  sendPieces(*_producer, large, 50'000);
  (void)sendText(*producerOf(""), "on an anonymous stream of its own");
  EXPECT_THAT(_inbox.waitTexts(3), ElementsAre("", binary, large));
  EXPECT_EQ(_inbox.wait(3)[0].attributes, attributes);
  EXPECT_EQ(other.size(), 0U);
  const auto counted = statistics();
  EXPECT_EQ(counted.streamId, binary);
  EXPECT_EQ(counted.messagesSent, 4U);
  EXPECT_EQ(counted.bytesSent, 100'015U);
  EXPECT_EQ(counted.messagesReceived, 4U);
  EXPECT_EQ(counted.bytesReceived, 100'015U);
  EXPECT_EQ(counted.payloadsReceived, 3U);
  EXPECT_EQ(counted.refused + counted.lost, 0U);
}

TEST_P(TransportSuite, EachConsumerGetsEveryMessageOrASecondOneIsRefused) {
  begin();
  Inbox second;
  const auto startTwo = [&] { return startConsumer(*_factory, _stream, second.callback()); };
  if (!GetParam().broadcasts) {
    EXPECT_THAT(startTwo, testing::ThrowsMessage<std::runtime_error>(HasSubstr("already has a consumer")));
    (void)sendText(*_producer, "a");
    _inbox.wait(1);
    _consumer.reset();
  }
  const auto two = startTwo();
  (void)sendText(*_producer, "b", {{"key", "value"}});
  EXPECT_THAT(second.waitTexts(1), ElementsAre("b")) << "what was acknowledged is done with";
  if (GetParam().broadcasts) {
    EXPECT_TRUE(_inbox.wait(1)[0].attributes.contains("key")) << "the other consumer moved from its own copy";
  }
}

TEST_P(TransportSuite, AcknowledgementIsTheIdThatTheConsumerSeesOrTheNumberInTheStore) {
  begin();
  auto asking = startProducer(*_factory, _stream, "YES");
  const auto first = sendText(*asking, "a"), second = sendText(*asking, "b");
  asking.reset();  // a future outlives its producer
  ASSERT_TRUE(ready(second, "the second acknowledgement"));
  const auto received = _inbox.wait(2);
  EXPECT_EQ(first.get(), GetParam().acknowledgesWithId ? received[0].id : "1");
  EXPECT_EQ(second.get(), GetParam().acknowledgesWithId ? received[1].id : "2");
  EXPECT_NE(first.get(), second.get());
  EXPECT_EQ(sendText(*_producer, "c").get(), "");
}

TEST_P(TransportSuite, PayloadsOfManyProducersArriveWholeAndInTheirOrder) {
  begin();
  std::vector<std::jthread> threads;
  for (const char letter : {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'}) {
    threads.emplace_back([letter, producer = producerOf("s")] {
      for (std::size_t size = 100; size <= 500; size += 100)
        sendPieces(*producer, std::string(size, letter), 100);
    });
  }
  std::map<char, std::size_t> size;
  for (const auto& text : _inbox.waitTexts(40)) {
    ASSERT_FALSE(text.empty());
    ASSERT_EQ(text, std::string(size[text[0]] += 100, text[0]));
  }
}

}  // namespace kestrel::streams
