#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "kestrel/datastreaming/StreamsFactory.hpp"

namespace library_test {

namespace ds = kestrel::datastreaming;
using Bytes = std::vector<std::uint8_t>;

struct SentMessage {
  std::string streamId;
  Bytes bytes;
  ds::AttributeMap attributes;
};

/// What one producer or consumer has registered. Its callbacks run under the mutex, so dropping the end waits
/// for the one in flight.
struct FakeEnd {
  std::recursive_mutex mutex;
  ds::DataCallback data;
  ds::ErrorCallback error;

  void fail(const std::string& text) {
    const std::lock_guard lock(mutex);
    if (error) error(std::runtime_error(text));
  }
  void drop() {
    const std::lock_guard lock(mutex);
    data = nullptr;
    error = nullptr;
  }
};

/// A streaming service under the test's control: it keeps what is sent, and delivers what the test gives it,
/// on the test's own thread. Hooks inject faults; set them while nothing else runs.
class FakeStreams : public ds::StreamsFactory {
 public:
  /// Called with "getStream", "createProducer", "startProducer", "createConsumer" or "startConsumer"; what it
  /// throws is the failure of that step.
  std::function<void(const std::string& step)> onStep = [](const std::string&) {};
  /// Called for each message, before it is kept; what it throws comes out of the producer's send().
  std::function<void(const SentMessage&)> onSend = [](const SentMessage&) {};

  void configure(const ds::ConfigurationMap& configuration) override {
    const std::lock_guard lock(_mutex);
    configurations.push_back(configuration);
  }

  std::shared_ptr<ds::Stream> getStream(const std::string& id, const ds::AttributeMap& attributes) override {
    onStep("getStream");
    if (!attributes.empty()) throw std::logic_error("streams are opened without attributes");
    return std::make_shared<FakeStream>(id);
  }

  std::shared_ptr<ds::Producer> createProducer(const std::shared_ptr<ds::Stream>& stream,
                                               const ds::ConfigurationMap& configuration) override {
    onStep("createProducer");
    const std::lock_guard lock(_mutex);
    producerConfigurations.push_back(configuration);
    producerEnds.push_back(std::make_shared<FakeEnd>());
    return std::make_shared<FakeProducer>(*this, stream->id(), producerEnds.back());
  }

  std::shared_ptr<ds::Consumer> createConsumer(const std::shared_ptr<ds::Stream>& stream) override {
    onStep("createConsumer");
    const std::lock_guard lock(_mutex);
    auto& end = consumerEnds[stream->id()] = std::make_shared<FakeEnd>();
    return std::make_shared<FakeConsumer>(*this, end);
  }

  std::vector<ds::StreamStatistics> statistics() const override { return {}; }

  /// Hands one message to the stream's newest consumer on this thread.
  void deliver(const std::string& streamId, const Bytes& bytes, ds::AttributeMap attributes = {}) {
    const auto end = consumerEnd(streamId);
    const std::lock_guard lock(end->mutex);
    if (end->data) end->data(bytes.data(), bytes.size(), "message-1", attributes);
  }

  std::shared_ptr<FakeEnd> consumerEnd(const std::string& streamId) {
    const std::lock_guard lock(_mutex);
    return consumerEnds.at(streamId);
  }

  std::vector<SentMessage> sent() const {
    const std::lock_guard lock(_mutex);
    return _sent;
  }

  std::vector<ds::ConfigurationMap> configurations;          // guard: _mutex while threads run
  std::vector<ds::ConfigurationMap> producerConfigurations;  // same
  std::vector<std::shared_ptr<FakeEnd>> producerEnds;        // same
  std::map<std::string, std::shared_ptr<FakeEnd>> consumerEnds;

 private:
  std::shared_future<void> step(const std::string& name) {
    std::promise<void> done;
    try {
      onStep(name);
      done.set_value();
    } catch (...) {
      done.set_exception(std::current_exception());
    }
    return done.get_future().share();
  }

  struct FakeStream : ds::Stream {
    explicit FakeStream(std::string streamId) : name(std::move(streamId)) {}
    std::string id() const override { return name; }
    std::string name;
  };

  struct FakeProducer : ds::Producer {
    FakeProducer(FakeStreams& streams, std::string streamId, std::shared_ptr<FakeEnd> end)
        : owner(streams), id(std::move(streamId)), callbacks(std::move(end)) {}
    ~FakeProducer() override { callbacks->drop(); }
    void setErrorCallback(ds::ErrorCallback callback) override { callbacks->error = std::move(callback); }
    std::shared_future<void> start() override { return owner.step("startProducer"); }
    std::shared_future<std::string> send(const std::uint8_t* data, std::uint64_t size,
                                         const ds::AttributeMap& attributes) override {
      SentMessage message{id, Bytes(data, data + size), attributes};
      owner.onSend(message);
      const std::lock_guard lock(owner._mutex);
      owner._sent.push_back(std::move(message));
      std::promise<std::string> done;
      done.set_value("sent");
      return done.get_future().share();
    }
    FakeStreams& owner;
    std::string id;
    std::shared_ptr<FakeEnd> callbacks;
  };

  struct FakeConsumer : ds::Consumer {
    FakeConsumer(FakeStreams& streams, std::shared_ptr<FakeEnd> end)
        : owner(streams), callbacks(std::move(end)) {}
    ~FakeConsumer() override { callbacks->drop(); }
    void setErrorCallback(ds::ErrorCallback callback) override { callbacks->error = std::move(callback); }
    void setDataCallback(ds::DataCallback callback) override { callbacks->data = std::move(callback); }
    std::shared_future<void> start() override { return owner.step("startConsumer"); }
    FakeStreams& owner;
    std::shared_ptr<FakeEnd> callbacks;
  };

  mutable std::mutex _mutex;  // guards _sent and the lists above
  std::vector<SentMessage> _sent;
};

}  // namespace library_test
