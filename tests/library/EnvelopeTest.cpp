#include "MessengerTest.hpp"

namespace library_test {

const Array id = text("01234567-89ab-cdef-0123-456789abcdef");
const Array none = text("");
const AttributeMap attributes{{"unit", std::string("m")}, {"count", -3L}};
const AttributeMap lastChunk{{"COMPRESSIONTYPE", std::string("chunk")}, {"UNCOMPRESSEDSIZE", 0L}};

/// Keeps what reaches the handlers.
class EnvelopeTest : public MessengerTest {
 protected:
  void SetUp() override {
    messenger->setReceiveHandler([this](const DataStruct& message) { received.push_back(message); });
    messenger->setRequestHandler([this](const DataStruct& message) {
      received.push_back(message);
      return DataStruct(number(42), {{"answer", 1L}}, "answer id");
    });
  }
  void expectOneMessage(const std::string& messageId, const AttributeMap& messageAttributes) {
    ASSERT_EQ(received.size(), 1U);
    EXPECT_EQ(received[0].data, number(5));
    EXPECT_EQ(received[0].id, messageId);
    EXPECT_EQ(received[0].attributes, messageAttributes);
    received.clear();
  }
  /// Bytes that were left behind would spoil this message, a chunk.
  void expectTheNextChunkToArriveWhole() {
    EXPECT_EQ(deliver(row({text("send"), number(5), text("next")}), lastChunk), Handling::done);
    expectOneMessage("next", {{"UNCOMPRESSEDSIZE", 0L}});
  }

  std::vector<DataStruct> received;
  std::unique_ptr<SendReceiveDataStream> messenger = make();
};

struct MalformedMessage {
  Bytes bytes;
  std::string error;
  AttributeMap attributes = lastChunk;
};

class Malformed : public EnvelopeTest, public testing::WithParamInterface<MalformedMessage> {};

TEST_P(Malformed, MessageIsLoggedAndAloneLost) {
  EXPECT_EQ(streams->deliver(GetParam().bytes, GetParam().attributes), Handling::failed);
  EXPECT_THAT(logged(Severity::error), ElementsAre(HasSubstr(GetParam().error)));
  EXPECT_THAT(received, IsEmpty());
  EXPECT_THAT(streams->sent(), IsEmpty()) << "it was answered";
  expectTheNextChunkToArriveWhole();
}

const std::string wrongType = "Invalid message received. Expected incoming KDA type to be ArrayType::CELL";
const std::string wrongLabel = "Invalid message received. Expected first argument to be a string";
const std::string wrongSecond = "Wrong message format. Expected second argument to be a string";
const std::string wrongSend = "Asynchronous messages should contain Label and Data only.";
const std::string wrongResponse = "Synchronous requests should contain Label, ID, and Data.";
const std::string wrongRequest = "Wrong message format. Expected 3 elements: label, uuid and data";
const AttributeMap wrongSize{{"COMPRESSIONTYPE", std::string("chunk")}, {"UNCOMPRESSEDSIZE", std::string()}};
const std::vector<MalformedMessage> malformedMessages{
    {encoded(number(1)), wrongType},
    {encoded(row({})), wrongLabel},
    {encoded(row({number(1), number(2), none})), wrongLabel},
    {encoded(row({chars("request"), id, none})), wrongRequest},
    {encoded(row({chars("request"), number(1), none, none})), wrongSecond},
    {encoded(row({chars("requestResponse"), id, none, none, none})), wrongResponse},
    {encoded(row({text("Request"), id, none, none})), wrongSend},
    {Bytes(1000, 0xFF), ""},
    {{1}, "", wrongSize}};
INSTANTIATE_TEST_SUITE_P(Envelopes, Malformed, testing::ValuesIn(malformedMessages));

TEST_F(EnvelopeTest, LosesOnlyTheMessageWhoseHandlerFails) {
  messenger->setRequestHandler(
      [](const DataStruct&) -> DataStruct { throw std::runtime_error("no answer"); });
  messenger->setReceiveHandler([](const DataStruct&) { throw std::bad_alloc(); });
  EXPECT_EQ(deliver(row({chars("request"), id, number(5), none}), lastChunk), Handling::failed);
  EXPECT_EQ(deliver(plainMessage, lastChunk), Handling::failed) << "its handler has seen it";
  EXPECT_THAT(streams->sent(), IsEmpty());
  EXPECT_THAT(logged(Severity::error), ElementsAre(HasSubstr("no answer"), testing::_));
  SetUp();
  expectTheNextChunkToArriveWhole();
}

const AttributeMap piece{{"COMPRESSIONTYPE", std::string("chunk")}, {"UNCOMPRESSEDSIZE", 1L}};

#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)  // they end the process instead
TEST_F(EnvelopeTest, LeavesAPayloadWhosePieceFindsNoMemory) {
  AttributeMap attributes = piece;
  EXPECT_EQ(streams->deliver(Bytes(10), piece), Handling::done);
  EXPECT_EQ(streams->consumer->data(nullptr, std::uint64_t{1} << 62, "huge", attributes), Handling::notTaken);
  (void)streams->deliver(Bytes(10), piece);
  EXPECT_EQ(deliver(row({text("send"), number(5), text("the rest")}), lastChunk), Handling::notTaken);
  EXPECT_THAT(received, IsEmpty());
  EXPECT_THAT(logged(Severity::error), ElementsAre(HasSubstr(std::bad_alloc().what())));
  attributes = lastChunk;
  (void)streams->deliver(Bytes(10), piece);
  EXPECT_EQ(streams->consumer->data(nullptr, std::uint64_t{1} << 62, "huge", attributes), Handling::notTaken);
  expectTheNextChunkToArriveWhole();
}
#endif

TEST_F(EnvelopeTest, ReadsAnIdThatIsNoTextAsEmpty) {
  for (const Array& envelope : {column({chars("any other label"), number(5), number(6)}),
                                row({chars("request"), id, number(5), number(6)})}) {
    deliver(envelope);
    expectOneMessage("", {});
  }
}

TEST_F(EnvelopeTest, AnswersARequestByAColumnWithTheUuidAsItCameAndEmptyDataWithoutAHandler) {
  deliver(row({text("request"), id, number(5), text("the id")}), attributes);
  expectOneMessage("the id", attributes);
  const SentMessage answer = streams->sent().back();
  EXPECT_EQ(decoded(answer.bytes), column({chars("requestResponse"), id, number(42), text("answer id")}));
  EXPECT_EQ(answer.attributes, (AttributeMap{{"answer", 1L}}));
  messenger->setRequestHandler({});
  EXPECT_EQ(deliver(row({chars("request"), id, number(5), text("the id")}), attributes), Handling::done);
  EXPECT_EQ(decoded(streams->sent().back().bytes), column({text("requestResponse"), id, Array(), none}))
      << "the label is a string here, characters elsewhere";
  EXPECT_THAT(streams->sent().back().attributes, IsEmpty());
}

TEST_F(EnvelopeTest, SendsARowWithAnAsciiId) {
  messenger->send(DataStruct(number(5), attributes, "the id"));
  const auto drawn = messenger->asyncRequest(DataStruct(number(5), attributes, "the id")).second;
  EXPECT_THROW(messenger->send(DataStruct(number(5), {}, "caf\xc3\xa9")),
               kestreldata::NonAsciiCharInInputDataException);
  const auto sent = streams->sent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(decoded(sent[0].bytes), row({text("send"), number(5), text("the id")}));
  EXPECT_EQ(decoded(sent[1].bytes), row({chars("request"), chars(drawn), number(5), text("the id")}));
  EXPECT_EQ(sent[0].attributes, attributes);
  EXPECT_EQ(sent[1].attributes, attributes);
}

}  // namespace library_test
