#include "transports/memory/MemoryReceiver.hpp"

#include <utility>
#include <vector>

namespace kestrel::streams {

/// At once, wherever it is called: what is sent from then on is for other consumers, or for the next one.
void MemoryReceiver::leave(bool /*insideRun*/) {
  if (!_queue) return;
  _stream->detach(_queue);
  _queue->stop();
}

void MemoryReceiver::run() {
  std::vector<MemoryQueue::Entry> batch;
  std::uint64_t left = 0;
  while (const auto now = _queue->take(batch, _pipeline->deadline())) {
    for (auto& entry : batch) {
      if (!_queue->stopped()) {
        handle(entry);
      } else if (entry.kind == MemoryQueue::Kind::message) {
        ++left;
      }
    }
    if (batch.empty()) _pipeline->tick(*now);
  }
  _pipeline->abandon(left + _queue->dropMessages());
}

void MemoryReceiver::handle(MemoryQueue::Entry& entry) {
  if (entry.kind == MemoryQueue::Kind::vanished) return _pipeline->producerVanished(entry.producer);
  if (entry.kind == MemoryQueue::Kind::abandoned) return _pipeline->payloadAbandoned(entry.producer);
  const MemoryMessage& message = *entry.message;
  if (const auto deadline = _pipeline->deadline(); deadline && message.arrival >= *deadline) {
    _pipeline->tick(message.arrival);
  }
  Frame frame;
  frame.stamp = message.stamp;
  frame.arrival = message.arrival;
  frame.data = message.data();
  frame.size = message.size();
  frame.attributes = message.attributes;
  frame.owner = std::move(entry.message);
  frame.charge = std::move(entry.charge);
  _pipeline->accept(std::move(frame));
}

}  // namespace kestrel::streams
