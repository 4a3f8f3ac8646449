#pragma once

#include <any>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>

#include "kestrel/callbacks/CallbackGate.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"
#include "kestrel/datastreaming/StreamsFactory.hpp"
#include "messenger/Envelope.hpp"
#include "messenger/HandlerSlot.hpp"
#include "messenger/RequestTable.hpp"
#include "messenger/SendPath.hpp"
#include "remote_connectivity/asyncio/util/ISendReceiveMessenger.hpp"
#include "remote_connectivity/asyncio/util/KDAHelper.hpp"
#include "remote_connectivity/asyncio/util/ReceiveDataHelper.hpp"

namespace remote_connectivity::asyncio::util {

/// The fixed times of a messenger, and its one limit; tests shorten them.
struct MessengerTiming {
  std::chrono::milliseconds requestTimeout = std::chrono::seconds(20);
  std::chrono::milliseconds waitSlice{5};  ///< how late an interrupt or the deadline is noticed
  std::chrono::milliseconds handlerGrace{
      250};  ///< how long after the start early messages wait for a handler
  std::uint64_t backlogLimit = std::uint64_t{256} << 20;  ///< bytes; requests wait while more are queued
};

/// The messenger over one producer stream and one consumer stream.
///
/// Threads: callers' threads send and wait; the consumer's delivery thread runs reassembly, dispatch and the
/// handlers; pool threads drain the buffer and run the producer error handler; the streaming service's own
/// threads run the error handlers otherwise. All callbacks go through the gate.
class SendReceiveDataStream : public ISendReceiveMessenger {
 public:
  using Options = std::unordered_map<std::string, std::any>;
  using StreamsFactory = kestrel::datastreaming::StreamsFactory;

  SendReceiveDataStream(const std::string& sendStreamId, const std::string& receiveStreamId,
                        std::shared_ptr<StreamsFactory> factory, const Options& options,
                        const MessengerTiming& timing = {});
  SendReceiveDataStream(const std::string& sendStreamId, const std::string& receiveStreamId,
                        std::shared_ptr<StreamsFactory> factory);
  ~SendReceiveDataStream() override;
  SendReceiveDataStream(const SendReceiveDataStream&) = delete;
  SendReceiveDataStream& operator=(const SendReceiveDataStream&) = delete;

  void send(const DataStruct& message) override;
  DataStruct request(const DataStruct& message) override;
  std::pair<std::shared_future<DataStruct>, std::string> asyncRequest(const DataStruct& message) override;
  DataStruct getAsyncRequestResult(const std::shared_future<DataStruct>& future,
                                   const std::string& id) override;
  std::string getSendStreamId() override;
  void setSendStreamId(const std::string& id) override;
  void setProducerErrorHandler(ErrorHandler handler) override;

  void setReceiveHandler(ReceiveHandler handler) override;
  void setRequestHandler(RequestHandler handler) override;
  std::string getReceiveStreamId() override;
  void setConsumerErrorHandler(ErrorHandler handler) override;

  [[nodiscard]] std::size_t pendingRequests() const { return _requests.size(); }

 private:
  using Handling = kestrel::datastreaming::Handling;

  /// What the delivery thread knows of the message that it brings.
  struct Reception {
    Handling outcome = Handling::done;
    bool handedOver = false;  ///< a handler may have seen it
    bool isPiece = false;     ///< of a payload
    bool torn = false;        ///< an earlier piece of the payload in progress is missing
  };

  // Making the two ends.
  std::shared_ptr<SendPath> createProducer(const std::string& streamId);
  void createProducerBuffer(SendPath& path);
  void createConsumer(const std::string& streamId);
  std::unique_ptr<ReceiveDataHelper> makeReceiveHelper();
  kestrel::datastreaming::ErrorCallback errorCallback(const char* end, ErrorHandler handler);
  SendFunction sendFunction(std::shared_ptr<kestrel::datastreaming::Producer> producer,
                            kestrel::datastreaming::ErrorCallback report);

  // Sending.
  void privateSend(const kestreldata::Array& envelope, AttributeMap attributes);
  std::shared_ptr<SendPath> sendPath();
  std::shared_ptr<SendPath> lateSendPath();

  // Receiving, on the delivery thread.
  Handling receive(const std::uint8_t* data, std::uint64_t size, const std::string& messageId,
                   AttributeMap& attributes) noexcept;
  void dropPieces(bool moreFollow) noexcept;
  void process(const std::uint8_t* data, std::uint64_t size, AttributeMap&& attributes) noexcept;
  template <class Step>
  bool guarded(Step&& step) noexcept;
  Handling outcomeOf(const std::exception_ptr& error) const noexcept;
  void processIncomingMessage(const std::uint8_t* data, std::size_t size, AttributeMap&& attributes);
  void handOver(const DataStruct& message);
  bool roomForAnAnswer();
  void serveRequest(const kestreldata::Array& uuid, const DataStruct& request);
  bool waitForResult(const std::shared_future<DataStruct>& future) const;
  void shutDown() noexcept;
  void destroyEnds() noexcept;

  const MessengerTiming _timing;
  HandlerSlot<void(const std::exception&)> _consumerErrorHandler;
  HandlerSlot<void(const std::exception&)> _producerErrorHandler;
  HandlerSlot<void(const DataStruct&)> _receiveHandler;
  HandlerSlot<DataStruct(const DataStruct&)> _requestHandler;
  std::shared_ptr<kestrel::datastreaming::Stream> _receiveStream;  // set by the constructor only
  std::shared_ptr<kestrel::datastreaming::Consumer> _consumer;     // set by the constructor only
  std::shared_ptr<SendPath> _sendPath KESTREL_GUARDED_BY(_sendPathMutex);
  std::unique_ptr<ReceiveDataHelper> _receiveHelper;  // used by the delivery thread only
  std::string _sendStreamId KESTREL_GUARDED_BY(_sendPathMutex);
  const std::string _receiveStreamId;
  std::shared_ptr<StreamsFactory> _factory;  // set by the constructor only
  RequestTable _requests;
  KDAHelper _kdaHelper;        // complete once constructed, then safe for several threads
  EnvelopeBuilder _envelopes;  // uses the helper's factory
  const Options _options;
  kestrel::callbacks::Mutex _sendPathMutex;
  // Held while a producer is made; comes before _sendPathMutex.
  kestrel::callbacks::Mutex _createProducerMutex;
  Reception _reception;                            // used by the delivery thread only
  std::atomic<std::thread::id> _deliveryThread{};  // the thread inside a handler, if any
  std::shared_ptr<kestrel::callbacks::CallbackGate> _gate =
      std::make_shared<kestrel::callbacks::CallbackGate>();
};

}  // namespace remote_connectivity::asyncio::util
