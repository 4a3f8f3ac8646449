#pragma once

#include <kestrel/datastreaming/Consumer.hpp>
#include <memory>
#include <mutex>

#include "transports/nats/NatsReceiver.hpp"
#include "transports/shared/OwnedThread.hpp"

namespace kestrel::streams {

/// Runs a receiver on a thread of its own.
class NatsConsumer final : public datastreaming::Consumer {
 public:
  explicit NatsConsumer(std::shared_ptr<NatsReceiver> receiver) : _receiver(std::move(receiver)) {}
  ~NatsConsumer() override;

  void setErrorCallback(datastreaming::ErrorCallback callback) override;
  void setDataCallback(datastreaming::DataCallback callback) override;
  [[nodiscard]] std::shared_future<void> start() override;

 private:
  void begin();

  const std::shared_ptr<NatsReceiver> _receiver;
  std::mutex _mutex;
  // Guarded by _mutex.
  std::shared_future<void> _started;
  OwnedThread _thread;
};

}  // namespace kestrel::streams
