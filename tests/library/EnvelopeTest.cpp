#include "Envelope.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MessengerTest.hpp"

namespace library_test {
namespace {

const std::string uuid = "01234567-89ab-cdef-0123-456789abcdef";
const std::string wrongSecond = "Wrong message format. Expected second argument to be a string";
const std::string wrongSend =
    "Invalid message received. Asynchronous messages should contain Label and Data only.";
const std::string wrongResponse =
    "Invalid message received. Synchronous requests should contain Label, ID, and Data.";
const std::string wrongRequest = "Wrong message format. Expected 3 elements: label, uuid and data";
const std::string wrongLabel = "Invalid message received. Expected first argument to be a string";

/// Counts what reaches the handlers.
class ReceivingTest : public MessengerTest {
 protected:
  void SetUp() override {
    messenger->setReceiveHandler([this](const DataStruct& message) { received.push_back(message); });
    messenger->setRequestHandler([this](const DataStruct& message) {
      requested.push_back(message);
      return DataStruct(number(42), {{"answer", 1L}}, "answer id");
    });
  }

  void expectTheNextMessageToArrive() {
    received.clear();
    deliver(row({text("send"), number(7), text("next")}));
    ASSERT_EQ(received.size(), 1U);
    EXPECT_EQ(received[0].id, "next");
  }

  /// Delivers one payload in chunks of that size, as they arrive from a stream.
  void deliverInChunks(const std::vector<std::uint8_t>& bytes, std::size_t size) {
    for (std::size_t offset = 0; offset < bytes.size(); offset += size) {
      const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
      const auto count = static_cast<std::ptrdiff_t>(std::min(size, bytes.size() - offset));
      const long next = offset + size < bytes.size() ? static_cast<long>(size) : 0;
      streams->deliver("in", Bytes(first, first + count),
                       {{"COMPRESSIONTYPE", std::string("chunk")}, {"UNCOMPRESSEDSIZE", next}});
    }
  }

  std::vector<DataStruct> received;
  std::vector<DataStruct> requested;
  std::unique_ptr<SendReceiveDataStream> messenger = make();
};

struct MalformedCase {
  const char* name;
  Array envelope;
  std::string error;
};

class MalformedMessage : public ReceivingTest, public testing::WithParamInterface<MalformedCase> {};

TEST_P(MalformedMessage, IsLoggedAndLost) {
  const auto [future, pending] = messenger->asyncRequest(DataStruct(number(1)));
  const std::size_t sentBefore = streams->sent().size();
  deliver(GetParam().envelope);
  EXPECT_TRUE(log.wroteError(GetParam().error));
  EXPECT_TRUE(received.empty());
  EXPECT_TRUE(requested.empty());
  EXPECT_EQ(streams->sent().size(), sentBefore);
  EXPECT_EQ(messenger->pendingRequests(), 1U);
  expectTheNextMessageToArrive();
}

INSTANTIATE_TEST_SUITE_P(
    Cases, MalformedMessage,
    testing::Values(
        MalformedCase{"notACell", number(1),
                      "Invalid message received. Expected incoming KDA type to be ArrayType::CELL"},
        MalformedCase{"emptyCell", row({}), wrongLabel},
        MalformedCase{"labelNotText", row({number(1), number(2), text("")}), wrongLabel},
        MalformedCase{"requestOf3", row({chars("request"), chars(uuid), number(1)}), wrongRequest},
        MalformedCase{"requestOf5", row({chars("request"), chars(uuid), number(1), text(""), text("")}),
                      wrongRequest},
        MalformedCase{"requestUuidNotText", row({chars("request"), number(1), number(2), text("")}),
                      wrongSecond},
        MalformedCase{"responseOf3", column({chars("requestResponse"), chars(uuid), number(1)}),
                      wrongResponse},
        MalformedCase{"responseOf5",
                      column({chars("requestResponse"), chars(uuid), number(1), text(""), text("")}),
                      wrongResponse},
        MalformedCase{"responseUuidNotText",
                      column({chars("requestResponse"), number(1), number(2), text("")}), wrongSecond},
        MalformedCase{"sendOf2", row({text("send"), number(1)}), wrongSend},
        MalformedCase{"sendOf4", row({text("send"), number(1), text(""), text("")}), wrongSend},
        MalformedCase{"otherLabelOf4", row({text("Request"), chars(uuid), number(1), text("")}), wrongSend}),
    [](const auto& info) { return info.param.name; });

TEST_F(ReceivingTest, SurvivesBytesThatAreNoArray) {
  for (const Bytes& bytes : {Bytes{}, Bytes{1}, Bytes(1000, 0xFF), Bytes(1000, 0)}) {
    log.clear();
    streams->deliver("in", bytes);
    EXPECT_TRUE(log.wroteError("")) << bytes.size();
    expectTheNextMessageToArrive();
  }
}

class SendShapes : public ReceivingTest, public testing::WithParamInterface<Array> {};

TEST_P(SendShapes, ReachTheReceiveHandlerWithTheirAttributes) {
  const AttributeMap attributes{{"unit", std::string("m")}, {"count", -3L}};
  deliver(GetParam(), attributes);
  ASSERT_EQ(received.size(), 1U);
  EXPECT_EQ(received[0].data, number(5));
  EXPECT_EQ(received[0].id, "the id");
  EXPECT_EQ(received[0].attributes, attributes);
  EXPECT_TRUE(log.wrote(messengerChannel, Severity::trace,
                        "SendReceiveStream::processIncomingMessage received message on consumer in"));
}

INSTANTIATE_TEST_SUITE_P(Labels, SendShapes,
                         testing::Values(row({text("send"), number(5), text("the id")}),
                                         row({chars("send"), number(5), chars("the id")}),
                                         column({chars("send"), number(5), text("the id")}),
                                         row({chars("anything"), number(5), text("the id")})));

TEST_F(ReceivingTest, ReadsAnIdThatIsNotTextAsEmpty) {
  deliver(row({text("send"), number(5), number(6)}));
  ASSERT_EQ(received.size(), 1U);
  EXPECT_EQ(received[0].id, "");
}

class RequestShapes : public ReceivingTest, public testing::WithParamInterface<std::pair<Array, Array>> {};

TEST_P(RequestShapes, AreAnsweredByAColumnWithTheUuidAsItCame) {
  const auto& [envelope, uuidElement] = GetParam();
  deliver(envelope, {{"asked", 1L}});
  ASSERT_EQ(requested.size(), 1U);
  EXPECT_EQ(requested[0].data, number(5));
  EXPECT_EQ(requested[0].id, "the id");
  EXPECT_EQ(requested[0].attributes, (AttributeMap{{"asked", 1L}}));
  EXPECT_EQ(static_cast<const Array&>(lastSent()),
            column({chars("requestResponse"), uuidElement, number(42), text("answer id")}));
  EXPECT_EQ(streams->sent().back().streamId, "out");
  EXPECT_EQ(streams->sent().back().attributes, (AttributeMap{{"answer", 1L}}));
  EXPECT_TRUE(log.wrote(messengerChannel, Severity::trace, "=== Got request ID: " + uuid));
}

INSTANTIATE_TEST_SUITE_P(
    Labels, RequestShapes,
    testing::Values(std::pair{row({chars("request"), chars(uuid), number(5), text("the id")}), chars(uuid)},
                    std::pair{column({text("request"), text(uuid), number(5), text("the id")}), text(uuid)}));

TEST_F(MessengerTest, AnswersWithEmptyDataWhereNobodyHandlesRequests) {
  const auto messenger = make(unlimited(), {.handlerGrace = 0ms});
  deliver(row({chars("request"), chars(uuid), number(5), text("the id")}), {{"asked", 1L}});
  const auto response = lastSent();
  ASSERT_EQ(response.getDimensions(), (ArrayDimensions{4, 1}));
  const Array label = response[0];
  const Array echoed = response[1];
  const Array data = response[2];
  const Array id = response[3];
  EXPECT_EQ(label, text("requestResponse")) << "a string scalar here, characters elsewhere";
  EXPECT_EQ(echoed, chars(uuid));
  EXPECT_TRUE(data.isEmpty());
  EXPECT_EQ(id, text(""));
  EXPECT_EQ(streams->sent().back().attributes, AttributeMap{});
}

TEST_F(ReceivingTest, SendsARowOfLabelDataAndId) {
  const AttributeMap attributes{{"unit", std::string("m")}, {"count", -3L}};
  messenger->send(DataStruct(number(5), attributes, "the id"));
  EXPECT_EQ(static_cast<const Array&>(lastSent()), row({text("send"), number(5), text("the id")}));
  EXPECT_EQ(streams->sent().back().attributes, attributes);
  EXPECT_TRUE(log.wrote(messengerChannel, Severity::trace,
                        "SendReceiveDataStream::privateSend attempting send on stream out"));
}

TEST_F(ReceivingTest, RequestsWithARowOfLabelUuidDataAndId) {
  const AttributeMap attributes{{"count", -3L}};
  const auto [future, id] = messenger->asyncRequest(DataStruct(number(5), attributes, "the id"));
  EXPECT_EQ(static_cast<const Array&>(lastSent()),
            row({chars("request"), chars(id), number(5), text("the id")}));
  EXPECT_EQ(streams->sent().back().attributes, attributes);
  EXPECT_TRUE(log.wrote(messengerChannel, Severity::trace, "Sending request. ID: " + id));
}

TEST_F(ReceivingTest, RefusesToSendAnIdBeyond7Bits) {
  EXPECT_THROW(messenger->send(DataStruct(number(5), {}, "caf\xc3\xa9")),
               kestreldata::NonAsciiCharInInputDataException);
  EXPECT_TRUE(streams->sent().empty());
}

TEST_F(ReceivingTest, LosesOnlyTheMessageWhoseHandlerFails) {
  messenger->setRequestHandler(
      [](const DataStruct&) -> DataStruct { throw std::runtime_error("no answer"); });
  deliver(row({chars("request"), chars(uuid), number(5), text("")}));
  EXPECT_TRUE(log.wroteError("no answer"));
  EXPECT_TRUE(streams->sent().empty());
  const auto failWithAnInteger = [](const DataStruct&) { throw 1; };
  messenger->setReceiveHandler(failWithAnInteger);
  log.clear();
  deliver(row({text("send"), number(5), text("")}));
  EXPECT_TRUE(log.wroteError(""));
  SetUp();
  expectTheNextMessageToArrive();
}

TEST_F(ReceivingTest, LeavesNoBytesOfABadPayloadBehind) {
  const auto good = encoded(row({text("send"), number(5), text("good")}));
  std::size_t expected = 0;
  const auto expectAWholePayload = [&] {
    deliverInChunks(good, 7);
    ASSERT_EQ(received.size(), ++expected);
    EXPECT_EQ(received.back().id, "good");
  };
  deliverInChunks(encoded(row({text("send"), number(5)})), 7);
  EXPECT_TRUE(log.wroteError(wrongSend));
  expectAWholePayload();

  log.clear();
  streams->deliver("in", good, {{"COMPRESSIONTYPE", 1L}});
  EXPECT_TRUE(log.wroteError("")) << "an integer under the chunk key";
  expectAWholePayload();

  log.clear();
  streams->deliver("in", good,
                   {{"COMPRESSIONTYPE", std::string("chunk")}, {"UNCOMPRESSEDSIZE", std::string("0")}});
  EXPECT_TRUE(log.wroteError("")) << "a text under the size key";
  expectAWholePayload();
}

}  // namespace
}  // namespace library_test
