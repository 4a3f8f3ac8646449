#pragma once

#include <functional>
#include <string>

#include "remote_connectivity/asyncio/util/DataStruct.hpp"
#include "remote_connectivity/asyncio/util/ISendMessenger.hpp"

namespace remote_connectivity::asyncio::util {

/// Given each one-way message, on the messenger's delivery thread, one at a time. What it throws is logged
/// and loses that message only. It must not destroy the messenger, nor wait for a response on it.
using ReceiveHandler = std::function<void(const DataStruct& message)>;

/// Given each request, on the messenger's delivery thread; what it returns goes back as the response. If it
/// throws, the failure is logged and the requester runs into its time-out.
using RequestHandler = std::function<DataStruct(const DataStruct& message)>;

/// The receiving side of a messenger. Every operation may be called from several threads at once.
class REMOTE_CONNECTIVITY_EXPORT IReceiveMessenger {
 public:
  virtual ~IReceiveMessenger();

  /// Replaces the receive handler; the next message goes to the new one. Messages that arrive before the
  /// first handler is set wait for it for up to 250 ms after the messenger was made. Where messages are
  /// stored, those that found no handler by then stay there for the next consumer; elsewhere they are lost.
  virtual void setReceiveHandler(ReceiveHandler handler) = 0;

  /// Replaces the request handler, as setReceiveHandler() does. Without one, requests are answered with an
  /// empty array.
  virtual void setRequestHandler(RequestHandler handler) = 0;

  /// The identifier of the stream received from.
  [[nodiscard]] virtual std::string getReceiveStreamId() = 0;

  /// Replaces the handler of consumer errors. The consumer takes a copy when it is made, which is in the
  /// messenger's constructor: a handler set later does not reach it. Errors are logged either way.
  virtual void setConsumerErrorHandler(ErrorHandler handler) = 0;
};

}  // namespace remote_connectivity::asyncio::util
