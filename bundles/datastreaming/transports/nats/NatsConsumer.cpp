#include "transports/nats/NatsConsumer.hpp"

#include <exception>
#include <stdexcept>

namespace kestrel::streams {

NatsConsumer::~NatsConsumer() {
  _receiver->stop(_thread.isCurrent());
  _thread.end();
}

void NatsConsumer::setErrorCallback(datastreaming::ErrorCallback callback) {
  _receiver->errors().setCallback(std::move(callback));
}

void NatsConsumer::setDataCallback(datastreaming::DataCallback callback) {
  const std::lock_guard lock(_mutex);
  if (_started.valid()) throw std::logic_error("setDataCallback: the consumer has already been started");
  _receiver->pipeline().setDataCallback(std::move(callback));
}

std::shared_future<void> NatsConsumer::start() {
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

void NatsConsumer::begin() {
  if (!_receiver->pipeline().hasDataCallback()) {
    throw std::logic_error("start: the consumer has no data callback");
  }
  _receiver->open();
  _thread.start("kestrel-deliver", [receiver = _receiver] { receiver->run(); });
}

}  // namespace kestrel::streams
