#pragma once

#include <kestrel/datastreaming/Consumer.hpp>
#include <memory>
#include <utility>

#include "delivery/OwnedThread.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/Receiver.hpp"
#include "transports/StartOnce.hpp"

namespace kestrel::streams {

/// Runs a receiver on a thread of its own.
class ThreadedConsumer final : public datastreaming::Consumer {
 public:
  explicit ThreadedConsumer(std::shared_ptr<Receiver> receiver) : _receiver(std::move(receiver)) {}
  ~ThreadedConsumer() override;

  void setErrorCallback(datastreaming::ErrorCallback callback) override;
  void setDataCallback(datastreaming::DataCallback callback) override;
  [[nodiscard]] std::shared_future<void> start() override;

 private:
  void begin();

  const std::shared_ptr<Receiver> _receiver;
  callbacks::Mutex _mutex;
  StartOnce _start KESTREL_GUARDED_BY(_mutex);
  OwnedThread _thread;  // begun under _mutex
};

}  // namespace kestrel::streams
