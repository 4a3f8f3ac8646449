#pragma once

#include <exception>
#include <functional>
#include <future>
#include <string>
#include <utility>

#include "remote_connectivity/asyncio/util/DataStruct.hpp"

namespace remote_connectivity::asyncio::util {

/// Told of a failure of the streaming service, on one of its threads or on a pool thread, never inside a call
/// of the messenger. It may send. It must not destroy the messenger.
using ErrorHandler = std::function<void(const std::exception& error)>;

/// The sending side of a messenger. Every operation may be called from several threads at once.
class REMOTE_CONNECTIVITY_EXPORT ISendMessenger {
 public:
  virtual ~ISendMessenger();

  /// Sends one way. Returns when the message is queued or handed to the streaming service; whether it
  /// arrives is not observed. Without a producer and without a send stream identifier the message is dropped
  /// silently. Without the producer buffer the call may sleep up to 1.2 s for the rate limit.
  /// Throws what the array library throws for an id that is not 7-bit text or data that cannot be encoded,
  /// and what the streaming service throws where the producer has yet to be made.
  virtual void send(const DataStruct& message) = 0;

  /// Sends a request and waits for its response: asyncRequest() and getAsyncRequestResult() in sequence.
  /// Must not be called from a handler of the same messenger: the thread that would deliver the response is
  /// the one that waits.
  [[nodiscard]] virtual DataStruct request(const DataStruct& message) = 0;

  /// Sends a request. Gives the future of its response and the request's UUID; both belong into
  /// getAsyncRequestResult(). Throws as send() does. The future holds std::future_error (broken promise) once
  /// the messenger is gone.
  [[nodiscard]] virtual std::pair<std::shared_future<DataStruct>, std::string> asyncRequest(
      const DataStruct& message) = 0;

  /// Waits at most 20 seconds for the response. Throws MessengerException (Timeout) after that, the host's
  /// own exception when the user interrupts the wait, and whatever the future holds.
  [[nodiscard]] virtual DataStruct getAsyncRequestResult(const std::shared_future<DataStruct>& future,
                                                         const std::string& id) = 0;

  /// The identifier of the stream sent on, empty while there is no producer.
  [[nodiscard]] virtual std::string getSendStreamId() = 0;

  /// Names the stream to send on. Takes effect at the first send of a messenger that has no producer yet; an
  /// existing producer keeps its stream.
  virtual void setSendStreamId(const std::string& id) = 0;

  /// Replaces the handler of producer errors. A producer takes a copy when it is made: a handler set later
  /// does not reach it. Errors are logged either way.
  virtual void setProducerErrorHandler(ErrorHandler handler) = 0;
};

}  // namespace remote_connectivity::asyncio::util
