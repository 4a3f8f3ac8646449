#pragma once

#include <memory>

#include "transports/Receiver.hpp"
#include "transports/memory/MemoryStream.hpp"

namespace kestrel::streams {

/// Receives the messages of a stream within the process.
class MemoryReceiver final : public Receiver {
 public:
  MemoryReceiver(std::shared_ptr<StreamContext> context, std::shared_ptr<MemoryStream> stream,
                 const PayloadSequencer::Limits& limits)
      : Receiver(std::move(context), limits), _stream(std::move(stream)) {}

  void open() override { _queue = _stream->attach(); }
  void run() override;
  void leave(bool insideRun) override;

 private:
  void handle(MemoryQueue::Entry& entry);

  const std::shared_ptr<MemoryStream> _stream;
  std::shared_ptr<MemoryQueue> _queue;  // set by open()
};

}  // namespace kestrel::streams
