#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "TestTools.hpp"
#include "kestrel/datastreaming/StreamsFactory.hpp"

namespace library_test {

namespace ds = kestrel::datastreaming;

struct SentMessage {
  std::string streamId;
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
    End(FakeStreams& streams, const char* kind, std::string stream)
        : owner(streams), role(kind), streamId(std::move(stream)), destroyed(streams.destroyed) {}
    ~End() override { destroyed->push_back(role + streamId); }
    std::string id() const override { return streamId; }
    void setErrorCallback(ds::ErrorCallback callback) override { error = std::move(callback); }
    void setDataCallback(ds::DataCallback callback) override { data = std::move(callback); }
    std::shared_future<void> start() override {
      const std::string step = data ? "startConsumer" : "startProducer";
      return std::async(std::launch::deferred, [this, step] { owner.onStep(step); }).share();
    }
    std::shared_future<std::string> send(const std::uint8_t* bytes, std::uint64_t size,
                                         const ds::AttributeMap& attributes) override {
      owner.onSend();
      const std::lock_guard lock(owner._mutex);
      owner._sent.push_back({streamId, Bytes(bytes, bytes + size), attributes});
      return {};
    }
    FakeStreams& owner;
    const std::string role;
    std::string streamId;
    const std::shared_ptr<Lines> destroyed;
    ds::DataCallback data;
    ds::ErrorCallback error;
  };

  void configure(const ds::ConfigurationMap& configuration) override {
    configurations.push_back(configuration);
  }
  std::shared_ptr<ds::Stream> getStream(const std::string& id, const ds::AttributeMap&) override {
    onStep("getStream");
    return std::make_shared<End>(*this, "stream ", id);
  }
  std::shared_ptr<ds::Producer> createProducer(const std::shared_ptr<ds::Stream>& stream,
                                               const ds::ConfigurationMap& configuration) override {
    onStep("createProducer");
    producerConfigurations.push_back(configuration);
    return producers.emplace_back(std::make_shared<End>(*this, "producer ", stream->id()));
  }
  std::shared_ptr<ds::Consumer> createConsumer(const std::shared_ptr<ds::Stream>& stream) override {
    onStep("createConsumer");
    return consumer = std::make_shared<End>(*this, "consumer ", stream->id());
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

  std::vector<ds::ConfigurationMap> configurations;
  std::vector<ds::ConfigurationMap> producerConfigurations;
  std::vector<std::shared_ptr<End>> producers;
  std::shared_ptr<End> consumer;
  /// Streams and ends, in the order in which they went.
  const std::shared_ptr<Lines> destroyed = std::make_shared<Lines>();

 private:
  mutable std::mutex _mutex;  // guards _sent
  std::vector<SentMessage> _sent;
};

}  // namespace library_test
