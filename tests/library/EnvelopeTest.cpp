#include "MessengerTest.hpp"

namespace library_test {

const std::string uuid = "01234567-89ab-cdef-0123-456789abcdef";
const Array id = chars(uuid);
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
  const auto pending = messenger->asyncRequest(DataStruct(number(1)));
  EXPECT_EQ(streams->deliver(GetParam().bytes, GetParam().attributes), Handling::failed);
  EXPECT_THAT(logged(Severity::error), ElementsAre(HasSubstr(GetParam().error)));
  EXPECT_THAT(received, IsEmpty());
  EXPECT_EQ(streams->sent().size(), 1U) << "it was answered";
  EXPECT_EQ(messenger->pendingRequests(), 1U);
  expectTheNextChunkToArriveWhole();
}

MalformedMessage bad(const Array& envelope, const std::string& error) {
  return {encoded(envelope), error};
}

const std::string wrongType = "Invalid message received. Expected incoming KDA type to be ArrayType::CELL";
const std::string wrongLabel = "Invalid message received. Expected first argument to be a string";
const std::string wrongSecond = "Wrong message format. Expected second argument to be a string";
const std::string wrongSend =
    "Invalid message received. Asynchronous messages should contain Label and Data only.";
const std::string wrongResponse =
    "Invalid message received. Synchronous requests should contain Label, ID, and Data.";
const std::string wrongRequest = "Wrong message format. Expected 3 elements: label, uuid and data";
INSTANTIATE_TEST_SUITE_P(
    Envelopes, Malformed,
    testing::Values(bad(number(1), wrongType), bad(row({}), wrongLabel),
                    bad(row({number(1), number(2), none}), wrongLabel),
                    bad(row({chars("request"), id, number(1)}), wrongRequest),
                    bad(row({chars("request"), id, number(1), none, none}), wrongRequest),
                    bad(row({chars("request"), number(1), number(2), none}), wrongSecond),
                    bad(column({chars("requestResponse"), id, number(1)}), wrongResponse),
                    bad(column({chars("requestResponse"), id, none, none, none}), wrongResponse),
                    bad(column({chars("requestResponse"), number(1), none, none}), wrongSecond),
                    bad(row({text("send"), number(1)}), wrongSend),
                    bad(row({text("send"), number(1), none, none}), wrongSend),
                    bad(row({text("Request"), id, number(1), none}), wrongSend)));
INSTANTIATE_TEST_SUITE_P(Bytes, Malformed,
                         testing::Values(MalformedMessage{{}, ""}, MalformedMessage{{1}, ""},
                                         MalformedMessage{Bytes(1000, 0xFF), ""},
                                         MalformedMessage{{1}, "", {{"COMPRESSIONTYPE", 1L}}},
                                         MalformedMessage{{1},
                                                          "",
                                                          {{"COMPRESSIONTYPE", std::string("chunk")},
                                                           {"UNCOMPRESSEDSIZE", std::string("0")}}}));

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

TEST_F(EnvelopeTest, KeepsThePiecesOfAPayloadWhenAMessageWithAWrongMarkComesBetween) {
  const Bytes whole = encoded(row({text("send"), number(5), text("whole")}));
  const Bytes head(whole.begin(), whole.begin() + 3), tail(whole.begin() + 3, whole.end());
  EXPECT_EQ(streams->deliver(head, piece), Handling::done);
  EXPECT_EQ(streams->deliver({1}, {{"COMPRESSIONTYPE", 1L}}), Handling::failed);
  EXPECT_EQ(streams->deliver(tail, lastChunk), Handling::done);
  expectOneMessage("whole", {{"UNCOMPRESSEDSIZE", 0L}});
}

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

TEST_F(EnvelopeTest, TakesThreeCellsUnderEveryOtherLabelForAMessage) {
  for (const Array& label : {text("send"), chars("send"), chars("anything")}) {
    deliver(row({label, number(5), chars("the id")}), attributes);
    expectOneMessage("the id", attributes);
  }
  deliver(column({text("send"), number(5), number(6)}), attributes);
  expectOneMessage("", attributes);
  EXPECT_EQ(log.count("SendReceiveStream::processIncomingMessage received message on consumer in"), 4);
}

TEST_F(EnvelopeTest, AnswersARequestByAColumnWithTheUuidAsItCame) {
  for (const Array& uuidElement : {chars(uuid), text(uuid)}) {
    deliver(row({text("request"), uuidElement, number(5), text("the id")}), attributes);
    expectOneMessage("the id", attributes);
    const SentMessage answer = streams->sent().back();
    EXPECT_EQ(decoded(answer.bytes),
              column({chars("requestResponse"), uuidElement, number(42), text("answer id")}));
    EXPECT_EQ(answer.streamId, "out");
    EXPECT_EQ(answer.attributes, (AttributeMap{{"answer", 1L}}));
  }
  EXPECT_EQ(log.count("=== Got request ID: " + uuid), 2);
}

TEST_F(MessengerTest, AnswersWithEmptyDataWhereNobodyHandlesRequests) {
  const auto messenger = make({}, {.handlerGrace = 0ms});
  EXPECT_EQ(deliver(row({chars("request"), id, number(5), text("the id")}), attributes), Handling::done);
  const SentMessage answer = streams->sent().back();
  EXPECT_EQ(decoded(answer.bytes), column({text("requestResponse"), id, Array(), none}))
      << "the label is a string here, characters elsewhere";
  EXPECT_THAT(answer.attributes, IsEmpty());
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
  EXPECT_EQ(log.count("SendReceiveDataStream::privateSend attempting send on stream out"), 2);
  EXPECT_EQ(log.count("Sending request. ID: " + drawn), 1);
}

}  // namespace library_test
