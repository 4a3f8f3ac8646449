#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <kestrel/datastreaming/StreamsFactory.hpp>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Waiting.hpp"

namespace kestrel::streams {

/// One transport under test. A new one is made for each test.
struct TransportUnderTest {
  std::shared_ptr<void> owner;                             ///< of what the transport is over
  std::shared_ptr<datastreaming::StreamsFactory> factory;  ///< empty if it cannot be tested here
};

/// A transport, and where it differs from others.
struct TransportCase {
  const char* name;
  /// Makes it, with a bound for what waits for one consumer, in bytes.
  std::function<TransportUnderTest(std::uint64_t queueLimit)> make;
  bool broadcasts = true;             ///< each consumer gets every message; else a second one is refused
  bool acknowledgesWithId = true;     ///< else with the message's number in the store
  const char* mostForOne = "200000";  ///< bytes, as the refusal of a larger message says
};

inline void PrintTo(const TransportCase& transport, std::ostream* out) {
  *out << transport.name;
}

/// A message as a consumer got it.
struct Received {
  std::string text;
  std::string id;
  datastreaming::AttributeMap attributes;
};

/// Collects what a consumer gets.
class Inbox {
 public:
  datastreaming::DataCallback callback();
  void add(Received message);
  /// Waits until so many messages have come; fails the test if they do not.
  std::vector<Received> wait(std::size_t count);
  std::vector<std::string> waitTexts(std::size_t count);
  [[nodiscard]] std::size_t size() const;
  [[nodiscard]] bool has(const std::string& text) const;

 private:
  mutable std::mutex _mutex;
  std::vector<Received> _messages;
};

std::shared_ptr<datastreaming::Producer> startProducer(datastreaming::StreamsFactory& factory,
                                                       const std::shared_ptr<datastreaming::Stream>& stream,
                                                       const std::string& acknowledge = "NO");
std::shared_ptr<datastreaming::Consumer> startConsumer(datastreaming::StreamsFactory& factory,
                                                       const std::shared_ptr<datastreaming::Stream>& stream,
                                                       datastreaming::DataCallback callback);

datastreaming::AttributeMap pieceAttributes(bool last);

/// Cuts a text into pieces and sends them, stopping for nothing; returns the futures.
std::vector<std::shared_future<std::string>> sendPieces(datastreaming::Producer& producer,
                                                        const std::string& text, std::size_t pieceSize);
std::shared_future<std::string> sendText(datastreaming::Producer& producer, const std::string& text,
                                         const datastreaming::AttributeMap& attributes = {});
/// The text of the exception in a future, or "accepted".
std::string outcomeOf(const std::shared_future<std::string>& future);

class TransportSuite : public testing::TestWithParam<TransportCase> {
 protected:
  void SetUp() override {
    if (!_factory) GTEST_SKIP() << "scripts/test installs what it needs";
  }

  auto open(const std::string& id) { return _factory->getStream(id, {}); }
  auto producerOf(const std::string& id) { return startProducer(*_factory, open(id)); }
  auto consumerOf(const std::string& id, datastreaming::DataCallback callback) {
    return startConsumer(*_factory, open(id), std::move(callback));
  }
  /// Starts both ends of a stream.
  void begin(const std::string& id = "s") {
    _stream = open(id);
    _consumer = startConsumer(*_factory, _stream, _inbox.callback());
    _producer = startProducer(*_factory, _stream);
  }
  [[nodiscard]] datastreaming::StreamStatistics statistics() const { return _factory->statistics().at(0); }

  TransportUnderTest _transport = GetParam().make(200'000);
  std::shared_ptr<datastreaming::StreamsFactory> _factory = std::move(_transport.factory);
  Inbox _inbox;
  std::shared_ptr<datastreaming::Stream> _stream;
  std::shared_ptr<datastreaming::Producer> _producer;
  std::shared_ptr<datastreaming::Consumer> _consumer;
};

}  // namespace kestrel::streams
