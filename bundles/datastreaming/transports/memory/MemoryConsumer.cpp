#include "transports/memory/MemoryConsumer.hpp"

#include <exception>
#include <future>
#include <stdexcept>
#include <utility>

namespace kestrel::streams {

MemoryConsumer::MemoryConsumer(std::shared_ptr<StreamContext> context, std::shared_ptr<MemoryStream> stream,
                               const PayloadSequencer::Limits& limits)
    : _stream(std::move(stream)),
      _errors(std::make_shared<ErrorOutlet>(context)),
      _pipeline(std::make_shared<DeliveryPipeline>(std::move(context), _errors, limits)) {}

MemoryConsumer::~MemoryConsumer() {
  if (_queue) {
    _stream->detach(_queue);
    _queue->stop();
  }
  _pipeline->close();
  _errors->close();
  _thread.end();
}

void MemoryConsumer::setErrorCallback(datastreaming::ErrorCallback callback) {
  _errors->setCallback(std::move(callback));
}

void MemoryConsumer::setDataCallback(datastreaming::DataCallback callback) {
  const std::lock_guard lock(_mutex);
  if (_started.valid()) throw std::logic_error("setDataCallback: the consumer has already been started");
  _pipeline->setDataCallback(std::move(callback));
}

std::shared_future<void> MemoryConsumer::start() {
  const std::lock_guard lock(_mutex);
  if (_started.valid()) return _started;
  std::promise<void> started;
  auto result = started.get_future().share();
  try {
    begin();
    started.set_value();
    _started = result;
  } catch (...) {
    started.set_exception(std::current_exception());
  }
  return result;
}

void MemoryConsumer::begin() {
  if (!_pipeline->hasDataCallback()) throw std::logic_error("start: the consumer has no data callback");
  auto queue = _stream->attach();
  try {
    _thread.start("kestrel-deliver", [pipeline = _pipeline, queue] { deliver(*pipeline, *queue); });
  } catch (...) {
    _stream->detach(queue);
    throw;
  }
  _queue = std::move(queue);
}

void MemoryConsumer::deliver(DeliveryPipeline& pipeline, MemoryQueue& queue) {
  std::vector<MemoryQueue::Entry> batch;
  std::uint64_t left = 0;
  while (const auto now = queue.take(batch, pipeline.deadline())) {
    for (auto& entry : batch) {
      if (!queue.stopped()) {
        handle(pipeline, entry);
      } else if (entry.kind == MemoryQueue::Kind::message) {
        ++left;
      }
    }
    if (batch.empty()) pipeline.tick(*now);
  }
  pipeline.abandon(left + queue.dropMessages());
}

void MemoryConsumer::handle(DeliveryPipeline& pipeline, MemoryQueue::Entry& entry) {
  if (entry.kind == MemoryQueue::Kind::vanished) return pipeline.producerVanished(entry.producer);
  if (entry.kind == MemoryQueue::Kind::abandoned) return pipeline.payloadAbandoned(entry.producer);
  const MemoryMessage& message = *entry.message;
  if (const auto deadline = pipeline.deadline(); deadline && message.arrival >= *deadline) {
    pipeline.tick(message.arrival);
  }
  Frame frame;
  frame.stamp = message.stamp;
  frame.arrival = message.arrival;
  frame.data = message.bytes.data();
  frame.size = message.bytes.size();
  frame.attributes = message.attributes;
  frame.owner = std::move(entry.message);
  frame.charge = std::move(entry.charge);
  pipeline.accept(std::move(frame));
}

}  // namespace kestrel::streams
