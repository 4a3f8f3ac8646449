// How a messenger sends, and how it waits for the responses to its requests.
#include <utility>

#include "kestrel/callbacks/ShortWait.hpp"
#include "kestrel/interrupt/UserInterruptFacility.hpp"
#include "messenger/MessengerLog.hpp"
#include "messenger/SendReceiveDataStream.hpp"
#include "remote_connectivity/asyncio/util/MessengerException.hpp"
#include "transfer/Encode.hpp"

namespace remote_connectivity::asyncio::util {

using Clock = std::chrono::steady_clock;

void SendReceiveDataStream::send(const DataStruct& message) {
  privateSend(_envelopes.send(message), message.attributes);
}

DataStruct SendReceiveDataStream::request(const DataStruct& message) {
  ISendMessenger& self = *this;  // both calls go through the virtual table
  const auto [future, id] = self.asyncRequest(message);
  return self.getAsyncRequestResult(future, id);
}

std::pair<std::shared_future<DataStruct>, std::string> SendReceiveDataStream::asyncRequest(
    const DataStruct& message) {
  auto pending = _requests.open(Clock::now());
  const std::string& id = pending.second;
  try {
    const auto envelope = _envelopes.request(id, message);
    messengerLog().log(Severity::trace, "Sending request. ID: ", id);
    privateSend(envelope, message.attributes);
  } catch (...) {
    _requests.abandon(id, Clock::now() + _timing.requestTimeout);
    throw;
  }
  return pending;
}

DataStruct SendReceiveDataStream::getAsyncRequestResult(const std::shared_future<DataStruct>& future,
                                                        const std::string& id) {
  messengerLog().log(Severity::trace, "Waiting for response. ID: ", id);
  messengerLog().log(Severity::trace, "Using request timeout of ",
                     std::chrono::duration_cast<std::chrono::seconds>(_timing.requestTimeout).count(),
                     " seconds.");
  if (!future.valid()) throw std::future_error(std::future_errc::no_state);
  if (_deliveryThread.load(std::memory_order_relaxed) == std::this_thread::get_id() &&
      future.wait_for(std::chrono::seconds(0)) == std::future_status::timeout) {
    messengerLog().log(
        Severity::error,
        "A handler waits for a response on its own messenger. The response cannot be delivered "
        "before the handler returns. ID: ",
        id);
  }
  if (!waitForResult(future)) {
    messengerLog().log(Severity::trace, "Response not received within the timeout period. ID: ", id);
    _requests.forget(id);
    if (kestrel::interrupt::interruptsObserved() && kestrel::interrupt::interruptPending()) {
      kestrel::interrupt::raiseInterrupt();
    }
    throw MessengerException(MessengerExceptionType::Timeout);
  }
  messengerLog().log(Severity::trace, "Response received. ID: ", id);
  return future.get();
}

/// Waits in slices until the future is ready; false at the deadline or when the user interrupts.
bool SendReceiveDataStream::waitForResult(const std::shared_future<DataStruct>& future) const {
  thread_local kestrel::callbacks::ShortWait waits;
  const auto readyWithin = [&](Clock::duration time) {
    const auto status = future.wait_for(time);
    if (status == std::future_status::deferred) future.wait();
    return status != std::future_status::timeout;
  };
  const auto deadline = Clock::now() + _timing.requestTimeout;
  const bool observed = kestrel::interrupt::interruptsObserved();
  const bool ready = waits.look([&] { return readyWithin({}); });
  while (!ready && !readyWithin(_timing.waitSlice)) {
    if (observed && kestrel::interrupt::interruptPending()) return false;
    if (Clock::now() >= deadline) return false;
  }
  waits.end(Clock::now());
  return true;
}

void SendReceiveDataStream::privateSend(const kestreldata::Array& envelope, AttributeMap attributes) {
  auto path = sendPath();
  if (!path) path = lateSendPath();
  if (!path) {
    messengerLog().log(Severity::trace, "SendReceiveDataStream::privateSend No producer, no send stream ID.");
    return;
  }
  const auto bytes = encode(_kdaHelper.getSerializationContext(), envelope);
  if (messengerLog().enabled(Severity::trace)) {
    const kestrel::callbacks::MutexLock lock(_sendPathMutex);
    messengerLog().log(Severity::trace, "SendReceiveDataStream::privateSend attempting send on stream ",
                       _sendStreamId);
  }
  if (path->buffer) {
    path->buffer->enqueue(bytes.data(), bytes.size(), std::move(attributes));
    path->backlog.add(bytes.size());
  } else {
    path->helper->send(bytes.data(), bytes.size(), std::move(attributes), path->options.messageSizeLimit,
                       path->options.messageRate);
  }
}

std::shared_ptr<SendPath> SendReceiveDataStream::sendPath() {
  const kestrel::callbacks::MutexLock lock(_sendPathMutex);
  return _sendPath;
}

/// Makes the producer that the first send needs; empty without a stream identifier.
std::shared_ptr<SendPath> SendReceiveDataStream::lateSendPath() {
  const kestrel::callbacks::MutexLock creating(_createProducerMutex);
  if (auto path = sendPath()) return path;  // another thread was first
  std::string streamId;
  {
    const kestrel::callbacks::MutexLock lock(_sendPathMutex);
    streamId = _sendStreamId;
  }
  if (streamId.empty()) return nullptr;
  messengerLog().log(Severity::setup, "SendReceiveDataStream::privateSend late producer init");
  auto path = createProducer(streamId);
  const kestrel::callbacks::MutexLock lock(_sendPathMutex);
  _sendPath = path;
  return path;
}

}  // namespace remote_connectivity::asyncio::util
