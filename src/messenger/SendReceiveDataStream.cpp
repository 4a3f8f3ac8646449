#include "messenger/SendReceiveDataStream.hpp"

#include <utility>

#include "kestrel/diagnostics/FatalReport.hpp"
#include "messenger/MessengerLog.hpp"
#include "messenger/NewId.hpp"

namespace remote_connectivity::asyncio::util {

SendReceiveDataStream::SendReceiveDataStream(const std::string& sendStreamId,
                                             const std::string& receiveStreamId,
                                             std::shared_ptr<StreamsFactory> factory)
    : SendReceiveDataStream(sendStreamId, receiveStreamId, std::move(factory), {}) {}

SendReceiveDataStream::SendReceiveDataStream(const std::string& sendStreamId,
                                             const std::string& receiveStreamId,
                                             std::shared_ptr<StreamsFactory> factory, const Options& options,
                                             const MessengerTiming& timing)
    : _timing(timing),
      _sendStreamId(sendStreamId),
      _receiveStreamId(receiveStreamId),
      _factory(std::move(factory)),
      _requests(&newId<struct RequestIds>),
      _envelopes(_kdaHelper.getFactory()),
      _options(options) {
  static_cast<void>(
      _kdaHelper.getSerializationContext());  // made now, because first use is not safe for two threads
  try {
    if (!_factory) {
      throw std::runtime_error(
          "A messenger needs the data-streaming service, but no \"StreamsFactory\" is registered. Create a "
          "kestrel::host::Host, or set the framework of your own, before the messenger factory.");
    }
    if (!sendStreamId.empty()) _sendPath = createProducer(sendStreamId);
    createConsumer(receiveStreamId);
  } catch (const std::exception& error) {
    messengerLog().log(Severity::setup, "create consumer/producer failed: ", error.what());
    shutDown();
    throw;
  } catch (...) {
    shutDown();
    throw;
  }
}

SendReceiveDataStream::~SendReceiveDataStream() {
  if (_gate->holdsThisThread()) {
    kestrel::diagnostics::fatalReport("A messenger was destroyed inside one of its own handlers.",
                                      "SendReceiveDataStream");
  }
  shutDown();
}

/// Ends every use of this object by other threads. A handler in flight may be waiting for a handler, a
/// response or a send, so all three end before it is waited for.
void SendReceiveDataStream::shutDown() noexcept {
  _gate->refuse();
  _receiveHandler.release();
  _requestHandler.release();
  if (const auto path = sendPath()) {
    path->backlog.release();
    try {
      path->helper->stop();
    } catch (const std::exception& error) {
      messengerLog().log(Severity::error, "~SendReceiveDataStream() ", error.what());
    }
  }
  _requests.breakAll();
  _gate->close();
  destroyEnds();
}

/// The consumer goes before the producer, whose helpers go first of all.
void SendReceiveDataStream::destroyEnds() noexcept {
  std::shared_ptr<SendPath> path;
  {
    const kestrel::callbacks::MutexLock lock(_sendPathMutex);
    path.swap(_sendPath);
  }
  _factory.reset();
  _receiveHelper.reset();
  if (path) {
    path->buffer.reset();
    path->helper.reset();
  }
  _consumer.reset();
  if (path) path->producer.reset();
  _receiveStream.reset();
}

std::string SendReceiveDataStream::getSendStreamId() {
  const auto path = sendPath();
  return path ? path->stream->id() : std::string();
}

void SendReceiveDataStream::setSendStreamId(const std::string& id) {
  const kestrel::callbacks::MutexLock lock(_sendPathMutex);
  _sendStreamId = id;
}

std::string SendReceiveDataStream::getReceiveStreamId() {
  return _receiveStream ? _receiveStream->id() : std::string();
}

void SendReceiveDataStream::setProducerErrorHandler(ErrorHandler handler) {
  _producerErrorHandler.set(std::move(handler));
}

void SendReceiveDataStream::setConsumerErrorHandler(ErrorHandler handler) {
  _consumerErrorHandler.set(std::move(handler));
}

void SendReceiveDataStream::setReceiveHandler(ReceiveHandler handler) {
  _receiveHandler.set(std::move(handler));
}

void SendReceiveDataStream::setRequestHandler(RequestHandler handler) {
  _requestHandler.set(std::move(handler));
}

}  // namespace remote_connectivity::asyncio::util
