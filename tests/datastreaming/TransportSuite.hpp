#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <kestrel/datastreaming/StreamsFactory.hpp>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "../Eventually.hpp"
#include "Waiting.hpp"

namespace kestrel::streams {

/// One transport under test. A new one is made for each test.
class TransportFixture {
 public:
  virtual ~TransportFixture() = default;

  /// Why the transport cannot be tested here; empty if it can.
  [[nodiscard]] virtual std::string unavailable() const { return {}; }

  /// A service instance over the transport; those of one fixture meet in the same named streams.
  virtual std::shared_ptr<datastreaming::StreamsFactory> makeFactory() = 0;
};

/// A transport, and where it differs from others.
struct TransportCase {
  const char* name;
  /// Makes the fixture with a bound for what waits for one consumer, in bytes.
  std::function<std::unique_ptr<TransportFixture>(std::uint64_t queueLimit)> make;
  bool broadcasts = true;             ///< each consumer gets every message; else a second one is refused
  bool keepsBacklog = true;           ///< for a consumer that comes later
  bool acknowledgesWithId = true;     ///< else with the message's number in the store
  const char* mostForOne = "200000";  ///< bytes, as the refusal of a larger message says
};

inline void PrintTo(const TransportCase& transport, std::ostream* out) {
  *out << transport.name;
}

using Bytes = std::vector<std::uint8_t>;

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

 private:
  mutable std::mutex _mutex;
  std::condition_variable _changed;
  std::vector<Received> _messages;
};

/// Joins pieces in one buffer and trusts its stream, as the receiving side of a messenger does.
class Joiner {
 public:
  explicit Joiner(Inbox& inbox) : _inbox(inbox) {}
  datastreaming::DataCallback callback();

 private:
  Inbox& _inbox;
  std::string _pieces;
};

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
  using Producer = std::shared_ptr<datastreaming::Producer>;
  using Consumer = std::shared_ptr<datastreaming::Consumer>;
  using Stream = std::shared_ptr<datastreaming::Stream>;

  static constexpr std::uint64_t limit = 200'000;
  static inline const std::string tooLarge = std::string(1'200'000, 'x');

  void SetUp() override {
    if (const std::string why = _fixture->unavailable(); !why.empty()) GTEST_SKIP() << why;
  }

  TransportSuite() : _fixture(GetParam().make(limit)), _factory(_fixture->makeFactory()) {}

  Stream open(const std::string& id) { return _factory->getStream(id, {}); }
  Producer startProducer(const Stream& stream, const std::string& acknowledge = "NO");
  Consumer startConsumer(const Stream& stream, datastreaming::DataCallback callback);
  [[nodiscard]] datastreaming::StreamStatistics statistics() const { return _factory->statistics().at(0); }

  std::unique_ptr<TransportFixture> _fixture;
  std::shared_ptr<datastreaming::StreamsFactory> _factory;
};

}  // namespace kestrel::streams
