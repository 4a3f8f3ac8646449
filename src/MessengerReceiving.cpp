// How a messenger takes incoming messages apart and passes them on. All of it runs on the delivery thread.
#include <exception>
#include <utility>

#include "MessengerLog.hpp"
#include "SendReceiveDataStream.hpp"

namespace remote_connectivity::asyncio::util {

/// Runs one step of receiving and returns whether it succeeded. A failure loses the message that it belongs
/// to and nothing else.
template <class Step>
bool SendReceiveDataStream::guarded(Step&& step) const noexcept {
  try {
    step();
    return true;
  } catch (...) {
    messengerLog().log(Severity::error, "A message from stream ", _receiveStreamId,
                       " was not processed: ", textOf(std::current_exception()));
    return false;
  }
}

void SendReceiveDataStream::receive(const std::uint8_t* data, std::uint64_t size,
                                    const std::string& messageId, AttributeMap& attributes) noexcept {
  _deliveryThread.store(std::this_thread::get_id(), std::memory_order_relaxed);
  const bool taken = guarded([&] { _receiveHelper->assembleAndProcess(data, size, messageId, attributes); });
  // A chunk that it chokes on may have left bytes behind, which would spoil the next payload.
  if (!taken) guarded([&] { _receiveHelper = makeReceiveHelper(); });
  _deliveryThread.store({}, std::memory_order_relaxed);
}

/// Guarded on its own: if an exception passed the receive helper, it would keep the bytes of the payload.
void SendReceiveDataStream::process(const std::uint8_t* data, std::uint64_t size,
                                    AttributeMap&& attributes) noexcept {
  guarded([&] { processIncomingMessage(data, size, std::move(attributes)); });
}

void SendReceiveDataStream::processIncomingMessage(const std::uint8_t* data, std::size_t size,
                                                   AttributeMap&& attributes) {
  messengerLog().log(Severity::trace,
                     "SendReceiveStream::processIncomingMessage received message on consumer ",
                     _receiveStreamId);
  auto incoming = openEnvelope(_kdaHelper.kdaFromProtobuf(data, size), _kdaHelper);
  incoming.message.attributes = std::move(attributes);
  switch (incoming.kind) {
    case Incoming::Kind::request:
      messengerLog().log(Severity::trace, "=== Got request ID: ", incoming.uuidText);
      serveRequest(incoming.uuid, incoming.message);
      break;
    case Incoming::Kind::response:
      messengerLog().log(Severity::trace, "=== Got requestResponse ID: ", incoming.uuidText);
      if (!_requests.complete(incoming.uuidText, std::move(incoming.message))) {
        messengerLog().log(Severity::trace, "No promise found for request ", incoming.uuidText);
      }
      break;
    case Incoming::Kind::send:
      (*_receiveHandler.waitFor(_handlerDeadline))(incoming.message);
      break;
  }
}

void SendReceiveDataStream::serveRequest(const kestreldata::Array& uuid, const DataStruct& request) {
  const auto handler = _requestHandler.waitFor(_handlerDeadline);
  if (!*handler) {
    privateSend(_envelopes.emptyResponse(uuid), {});
    return;
  }
  auto answer = (*handler)(request);
  privateSend(_envelopes.response(uuid, answer), std::move(answer.attributes));
}

}  // namespace remote_connectivity::asyncio::util
