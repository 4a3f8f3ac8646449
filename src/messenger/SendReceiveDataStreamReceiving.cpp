// How a messenger takes incoming messages apart and passes them on. All of it runs on the delivery thread.
#include <exception>
#include <functional>
#include <new>
#include <system_error>
#include <utility>
#include <variant>

#include "messenger/MessengerLog.hpp"
#include "messenger/SendReceiveDataStream.hpp"

namespace remote_connectivity::asyncio::util {

using kestrel::datastreaming::Handling;

namespace {

/// A message has come that nobody is set to receive.
class NoReceiveHandler : public std::bad_function_call {};

bool morePiecesFollow(const AttributeMap& attributes) {
  const auto found = attributes.find(kestrel::datastreaming::lasting::MessageAttributes::UnCompressedSize);
  const auto* size = found == attributes.end() ? nullptr : std::get_if<long>(&found->second);
  return size != nullptr && *size > 0;
}

}  // namespace

/// Runs one step of receiving and returns whether it succeeded. A failure costs the message that it belongs
/// to and nothing else.
template <class Step>
bool SendReceiveDataStream::guarded(Step&& step) noexcept {
  try {
    step();
    return true;
  } catch (...) {
    _reception.outcome = outcomeOf(std::current_exception());
    messengerLog().log(Severity::error, "A message from stream ", _receiveStreamId,
                       " was not processed: ", textOf(std::current_exception()));
    return false;
  }
}

/// A message that no handler has seen may come again if the fault was not its own.
Handling SendReceiveDataStream::outcomeOf(const std::exception_ptr& error) const noexcept {
  if (_reception.handedOver) return Handling::failed;
  try {
    std::rethrow_exception(error);
  } catch (const NoReceiveHandler&) {
    return Handling::notTaken;
  } catch (const std::bad_alloc&) {
    return Handling::notTaken;
  } catch (const std::system_error&) {  // of a lock
    return Handling::notTaken;
  } catch (...) {
    return Handling::failed;
  }
}

Handling SendReceiveDataStream::receive(const std::uint8_t* data, std::uint64_t size,
                                        const std::string& messageId, AttributeMap& attributes) noexcept {
  _deliveryThread.store(std::this_thread::get_id(), std::memory_order_relaxed);
  _reception.outcome =
      Handling::done;  // stands for a piece that is kept; of whole messages process() says it
  _reception.handedOver = false;
  _reception.isPiece = false;
  const bool kept = guarded([&] {
    _reception.isPiece = _receiveHelper->isChunkAssembleNeeded(attributes);
    _receiveHelper->assembleAndProcess(data, size, messageId, attributes);
  });
  if (!kept && _reception.isPiece) dropPieces(morePiecesFollow(attributes));
  _deliveryThread.store({}, std::memory_order_relaxed);
  return _reception.outcome;
}

/// The helper may hold some of what it choked on, which would spoil the next payload. If the payload may come
/// again, the rest of it must not be taken for all of it.
void SendReceiveDataStream::dropPieces(bool moreFollow) noexcept {
  const Handling outcome = _reception.outcome;
  const bool dropped = guarded([&] { _receiveHelper = makeReceiveHelper(); });
  _reception.torn = moreFollow && (outcome == Handling::notTaken || !dropped);
  _reception.outcome = outcome;
}

/// Guarded on its own: if an exception passed the receive helper, it would keep the bytes of the payload.
void SendReceiveDataStream::process(const std::uint8_t* data, std::uint64_t size,
                                    AttributeMap&& attributes) noexcept {
  if (_reception.isPiece && std::exchange(_reception.torn, false)) {
    _reception.outcome = Handling::notTaken;
    return;
  }
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
      handOver(incoming.message);
      break;
  }
}

void SendReceiveDataStream::handOver(const DataStruct& message) {
  const auto handler = _receiveHandler.awaited();
  if (!*handler && _gate->closed()) {
    _reception.outcome = Handling::notTaken;
    return;
  }
  if (!*handler) throw NoReceiveHandler();
  _reception.handedOver = true;
  (*handler)(message);
}

/// Waits while peers ask faster than answers may leave: the buffer's queue has no bound of its own, but the
/// streaming service bounds what it keeps of the requests, and tells its producers. False if the messenger
/// goes meanwhile.
bool SendReceiveDataStream::roomForAnAnswer() {
  const auto path = sendPath();
  if (!path || !path->buffer) return true;
  return path->backlog.awaitRoom(_timing.backlogLimit, [&](std::int64_t bytes) {
    messengerLog().log(Severity::error, "Requests from stream ", _receiveStreamId, " wait: ", bytes,
                       " bytes are queued to be sent, more than ", _timing.backlogLimit, ", and ",
                       path->options.messageRate, " messages leave each second.");
  });
}

void SendReceiveDataStream::serveRequest(const kestreldata::Array& uuid, const DataStruct& request) {
  const auto handler = _requestHandler.awaited();
  if (!roomForAnAnswer() || (!*handler && _gate->closed())) {
    _reception.outcome = Handling::notTaken;
    return;
  }
  _reception.handedOver = true;  // without a handler too: the peer gets an answer, or a failure costs it
  if (!*handler) {
    privateSend(_envelopes.emptyResponse(uuid), {});
    return;
  }
  auto answer = (*handler)(request);
  privateSend(_envelopes.response(uuid, answer), std::move(answer.attributes));
}

}  // namespace remote_connectivity::asyncio::util
