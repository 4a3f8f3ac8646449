#pragma once

#include <kestrel/datastreaming/Consumer.hpp>
#include <memory>
#include <mutex>

#include "transports/memory/MemoryStream.hpp"
#include "transports/shared/DeliveryPipeline.hpp"
#include "transports/shared/OwnedThread.hpp"

namespace kestrel::streams {

/// Receives the messages of a stream within the process on a thread of its own.
class MemoryConsumer final : public datastreaming::Consumer {
 public:
  MemoryConsumer(std::shared_ptr<StreamContext> context, std::shared_ptr<MemoryStream> stream,
                 const PayloadSequencer::Limits& limits);
  ~MemoryConsumer() override;

  void setErrorCallback(datastreaming::ErrorCallback callback) override;
  void setDataCallback(datastreaming::DataCallback callback) override;
  [[nodiscard]] std::shared_future<void> start() override;

 private:
  static void deliver(DeliveryPipeline& pipeline, MemoryQueue& queue);
  static void handle(DeliveryPipeline& pipeline, MemoryQueue::Entry& entry);
  void begin();

  const std::shared_ptr<MemoryStream> _stream;
  const std::shared_ptr<ErrorOutlet> _errors;
  // Shared with the delivery thread, which outlives this object if its callback destroys it.
  const std::shared_ptr<DeliveryPipeline> _pipeline;

  std::mutex _mutex;
  // Guarded by _mutex.
  std::shared_future<void> _started;
  std::shared_ptr<MemoryQueue> _queue;
  OwnedThread _thread;
};

}  // namespace kestrel::streams
