#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "TestTools.hpp"
#include "kestrel/datastreaming/StreamsFactory.hpp"

namespace library_test {

namespace ds = kestrel::datastreaming;

struct SentMessage {
  Bytes bytes;
  ds::AttributeMap attributes;
};

/// A streaming service under the test's control: it keeps what is sent, and delivers what the test gives it,
/// on the test's own thread. Hooks inject faults; set them while nothing else runs. The ends stay callable
/// after their messenger has gone: that nothing comes through then is the messenger's part.
class FakeStreams : public ds::StreamsFactory {
 public:
  /// Called with "getStream", "createProducer", "startProducer", "createConsumer" or "startConsumer"; what it
  /// throws is the failure of that step.
  std::function<void(const std::string& step)> onStep = [](const std::string&) {};
  /// Called for each message, before it is kept; what it throws comes out of the producer's send().
  std::function<void()> onSend = [] {};

  struct End : ds::Stream, ds::Producer, ds::Consumer {
    End(FakeStreams& streams, std::string stream) : owner(streams), streamId(std::move(stream)) {}
    std::string id() const override { return streamId; }
    void setErrorCallback(ds::ErrorCallback callback) override { error = std::move(callback); }
    void setDataCallback(ds::DataCallback callback) override { data = std::move(callback); }
    std::shared_future<void> start() override {
      return std::async(std::launch::deferred,
                        [this] { owner.onStep(data ? "startConsumer" : "startProducer"); });
    }
    std::shared_future<std::string> send(const std::uint8_t* bytes, std::uint64_t size,
                                         const ds::AttributeMap& attributes) override {
      owner.onSend();
      const std::lock_guard lock(owner._mutex);
      owner._sent.push_back({Bytes(bytes, bytes + size), attributes});
      return {};
    }
    FakeStreams& owner;
    const std::string streamId;
    ds::DataCallback data;
    ds::ErrorCallback error;
  };

  void configure(const ds::ConfigurationMap& newest) override { configuration = newest; }
  std::shared_ptr<ds::Stream> getStream(const std::string& id, const ds::AttributeMap&) override {
    return make("getStream", id);
  }
  std::shared_ptr<ds::Producer> createProducer(const std::shared_ptr<ds::Stream>& stream,
                                               const ds::ConfigurationMap& configuration) override {
    producerConfigurations.push_back(configuration);
    return producer = make("createProducer", stream->id());
  }
  std::shared_ptr<ds::Consumer> createConsumer(const std::shared_ptr<ds::Stream>& stream) override {
    return consumer = make("createConsumer", stream->id());
  }
  std::vector<ds::StreamStatistics> statistics() const override {
    return std::vector<ds::StreamStatistics>(3);
  }

  /// Hands one message to the newest consumer on this thread.
  ds::Handling deliver(const Bytes& bytes, ds::AttributeMap attributes) {
    return consumer->data(bytes.data(), bytes.size(), "message-1", attributes);
  }
  std::vector<SentMessage> sent() const {
    const std::lock_guard lock(_mutex);
    return _sent;
  }

  ds::ConfigurationMap configuration;
  std::vector<ds::ConfigurationMap> producerConfigurations;
  std::shared_ptr<End> producer, consumer;  // the newest

 private:
  std::shared_ptr<End> make(const std::string& step, const std::string& streamId) {
    onStep(step);
    return std::make_shared<End>(*this, streamId);
  }
  mutable std::mutex _mutex;  // guards _sent
  std::vector<SentMessage> _sent;
};

}  // namespace library_test
