#include "messenger/Envelope.hpp"

#include <kestreldata/TypedArray.hpp>

#include <stdexcept>

namespace remote_connectivity::asyncio::util {

using kestreldata::Array;
using kestreldata::TypedArray;

namespace {

// Not objects that are destroyed with the process, as messages arrive until its very end.
constexpr char requestLabel[] = "request";
constexpr char responseLabel[] = "requestResponse";
constexpr char sendLabel[] = "send";

constexpr std::size_t sendElements = 3;
constexpr std::size_t requestElements = 4;

void require(bool condition, const char* text) {
  if (!condition) throw std::runtime_error(text);
}

std::string textOf(const Array& element, KDAHelper& helper, const char* errorText) {
  auto [text, error] = helper.kdaToString(element);
  require(error.empty(), errorText);
  return std::move(text);
}

/// A request or a response: both hold label, UUID, data and id.
Incoming openExchange(Incoming::Kind kind, const Array* elements, KDAHelper& helper) {
  Incoming incoming{.kind = kind, .uuid = elements[1], .uuidText = {}, .message = {}};
  incoming.uuidText =
      textOf(elements[1], helper, "Wrong message format. Expected second argument to be a string");
  incoming.message.data = elements[2];
  incoming.message.id = helper.kdaToString(elements[3]).first;
  return incoming;
}

}  // namespace

EnvelopeBuilder::EnvelopeBuilder(kestreldata::ArrayFactory& factory)
    : _factory(factory),
      _sendLabel(factory.createScalar(sendLabel)),
      _requestLabel(factory.createCharArray(requestLabel)),
      _responseLabel(factory.createCharArray(responseLabel)),
      _emptyResponseLabel(factory.createScalar(responseLabel)) {}

Array EnvelopeBuilder::send(const DataStruct& message) const {
  return _factory.createCellArray({1, 3}, _sendLabel, message.data, _factory.createScalar(message.id));
}

Array EnvelopeBuilder::request(const std::string& uuid, const DataStruct& message) const {
  return _factory.createCellArray({1, 4}, _requestLabel, _factory.createCharArray(uuid), message.data,
                                  _factory.createScalar(message.id));
}

Array EnvelopeBuilder::response(const Array& uuid, const DataStruct& answer) const {
  return _factory.createCellArray({4, 1}, _responseLabel, uuid, answer.data,
                                  _factory.createScalar(answer.id));
}

Array EnvelopeBuilder::emptyResponse(const Array& uuid) const {
  return _factory.createCellArray({4, 1}, _emptyResponseLabel, uuid, _factory.createEmptyArray(),
                                  _factory.createScalar(std::string()));
}

Incoming openEnvelope(const Array& envelope, KDAHelper& helper) {
  require(envelope.getType() == kestreldata::ArrayType::CELL,
          "Invalid message received. Expected incoming KDA type to be ArrayType::CELL");
  const TypedArray<Array> cell(envelope);
  constexpr char labelError[] = "Invalid message received. Expected first argument to be a string";
  require(!cell.isEmpty(), labelError);
  const Array* elements = cell.begin();
  const std::size_t count = cell.getNumberOfElements();
  const std::string label = textOf(elements[0], helper, labelError);
  if (label == requestLabel) {
    require(count == requestElements, "Wrong message format. Expected 3 elements: label, uuid and data");
    return openExchange(Incoming::Kind::request, elements, helper);
  }
  if (label == responseLabel) {
    require(count == requestElements,
            "Invalid message received. Synchronous requests should contain Label, ID, and Data.");
    return openExchange(Incoming::Kind::response, elements, helper);
  }
  require(count == sendElements,
          "Invalid message received. Asynchronous messages should contain Label and Data only.");
  Incoming incoming;
  incoming.message.data = elements[1];
  incoming.message.id = helper.kdaToString(elements[2]).first;
  return incoming;
}

}  // namespace remote_connectivity::asyncio::util
