// How a messenger makes its producer and its consumer.
#include <exception>
#include <future>
#include <utility>

#include "kestrel/framework/ServiceLookup.hpp"
#include "kestrel/threadpool/ThreadPool.hpp"
#include "messenger/MessengerLog.hpp"
#include "messenger/SendReceiveDataStream.hpp"

namespace remote_connectivity::asyncio::util {

using kestrel::datastreaming::ErrorCallback;
using kestrel::datastreaming::lasting::DataSteamingConfig;

namespace {

/// Calls the callback with the error on a pool thread, for a caller that may hold locks. Without a pool the
/// error is logged here and goes no further.
void reportFromPool(const ErrorCallback& report, std::exception_ptr error) noexcept {
  try {
    const auto pool = kestrel::framework::findService<kestrel::threadpool::ThreadPool>();
    if (!pool) throw std::runtime_error("the host has no thread pool");
    pool->submit([report, error] {
      try {
        std::rethrow_exception(error);
      } catch (const std::exception& failure) {
        report(failure);
      } catch (...) {
        report(std::runtime_error("The producer failed with an exception of an unknown type."));
      }
    });
  } catch (const std::exception& failure) {
    messengerLog().log(Severity::error, "A producer error could not be reported: ", failure.what());
  }
}

std::shared_future<std::string> failedSend(std::exception_ptr error) {
  std::promise<std::string> promise;
  promise.set_exception(std::move(error));
  return promise.get_future().share();
}

/// Takes a message off the backlog when it has been sent, or could not be.
struct Leaving {
  Backlog& backlog;
  std::size_t size;
  ~Leaving() { backlog.remove(size); }
};

}  // namespace

std::shared_ptr<SendPath> SendReceiveDataStream::createProducer(const std::string& streamId) {
  auto path = std::make_shared<SendPath>();
  path->stream = _factory->getStream(streamId, {});
  path->options = MessengerOptions::read(_options);
  path->producer = _factory->createProducer(
      path->stream, {{DataSteamingConfig::PRODUCER_ACK, std::any(path->options.producerAck)}});
  const auto report = errorCallback("Producer", *_producerErrorHandler.get());
  path->producer->setErrorCallback(report);
  path->producer->start().get();
  path->helper = std::make_unique<SendDataHelper>(sendFunction(path->producer, report));
  if (path->options.producerUsesBuffer) createProducerBuffer(*path);
  return path;
}

void SendReceiveDataStream::createProducerBuffer(SendPath& path) {
  auto handler = [helper = path.helper.get(), options = path.options, backlog = &path.backlog](
                     std::vector<std::uint8_t> data, AttributeMap attributes) {
    const Leaving leaving{*backlog, data.size()};
    // Nothing may escape: the buffer's periodic work ends for good with the first exception.
    try {
      return helper->send(data, std::move(attributes), options.messageSizeLimit, options.messageRate);
    } catch (...) {
      messengerLog().log(Severity::error,
                         "A buffered message was not sent: ", textOf(std::current_exception()));
      return failedSend(std::current_exception());
    }
  };
  path.buffer = std::make_unique<ProducerBuffer>(std::move(handler), path.options.messageSizeLimit,
                                                 path.options.bufferPeriod());
}

/// The function that hands a chunk to the producer. It never throws: the sender would stay marked as busy and
/// its stop() would wait for ever.
SendFunction SendReceiveDataStream::sendFunction(std::shared_ptr<kestrel::datastreaming::Producer> producer,
                                                 ErrorCallback report) {
  return [producer = std::move(producer), report = std::move(report)](
             const std::uint8_t* data, std::uint64_t size, const AttributeMap& attributes) {
    try {
      return producer->send(data, size, attributes);
    } catch (...) {
      // Called here it would run under the sender's locks, and a handler that sends would never return.
      reportFromPool(report, std::current_exception());
      return failedSend(std::current_exception());
    }
  };
}

/// What an end calls with its errors: logs, then calls the handler as it is now.
ErrorCallback SendReceiveDataStream::errorCallback(const char* end, ErrorHandler handler) {
  return [end, handler = std::move(handler), gate = _gate](const std::exception& error) {
    // Nobody else logs it, so neither a missing handler nor the end of the messenger may keep it from the
    // log.
    messengerLog().log(Severity::error, "Error from ", end, ": ", error.what());
    const auto pass = gate->enter();
    if (!pass || !handler) return;
    try {
      handler(error);
    } catch (...) {
      messengerLog().log(Severity::error, "The error handler failed: ", textOf(std::current_exception()));
    }
  };
}

void SendReceiveDataStream::createConsumer(const std::string& streamId) {
  _receiveStream = _factory->getStream(streamId, {});
  _consumer = _factory->createConsumer(_receiveStream);
  _receiveHelper = makeReceiveHelper();
  _consumer->setDataCallback([this, gate = _gate](const std::uint8_t* data, std::uint64_t size,
                                                  const std::string& messageId, AttributeMap& attributes) {
    const auto pass = gate->enter();
    return pass ? receive(data, size, messageId, attributes) : Handling::notTaken;
  });
  _consumer->setErrorCallback(errorCallback("Consumer", *_consumerErrorHandler.get()));
  _consumer->start().get();
  const auto graceEnds = std::chrono::steady_clock::now() + _timing.handlerGrace;
  _receiveHandler.giveUpAt(graceEnds);
  _requestHandler.giveUpAt(graceEnds);
}

std::unique_ptr<ReceiveDataHelper> SendReceiveDataStream::makeReceiveHelper() {
  return std::make_unique<ReceiveDataHelper>(
      [this](const std::uint8_t* data, std::uint64_t size, const std::string&, AttributeMap attributes) {
        process(data, size, std::move(attributes));
      });
}

}  // namespace remote_connectivity::asyncio::util
