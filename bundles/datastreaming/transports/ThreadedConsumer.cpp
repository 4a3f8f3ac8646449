#include "transports/ThreadedConsumer.hpp"

#include <stdexcept>

namespace kestrel::streams {

ThreadedConsumer::~ThreadedConsumer() {
  _receiver->stop(_thread.isCurrent());
  _thread.end();
}

void ThreadedConsumer::setErrorCallback(datastreaming::ErrorCallback callback) {
  _receiver->errors().setCallback(std::move(callback));
}

void ThreadedConsumer::setDataCallback(datastreaming::DataCallback callback) {
  const callbacks::MutexLock lock(_mutex);
  if (_start.done()) throw std::logic_error("setDataCallback: the consumer has already been started");
  _receiver->pipeline().setDataCallback(std::move(callback));
}

std::shared_future<void> ThreadedConsumer::start() {
  const callbacks::MutexLock lock(_mutex);
  return _start.run([this] { begin(); });
}

void ThreadedConsumer::begin() {
  if (!_receiver->pipeline().hasDataCallback()) {
    throw std::logic_error("start: the consumer has no data callback");
  }
  _receiver->open();
  try {
    _thread.start("kestrel-deliver", [receiver = _receiver] { receiver->run(); });
  } catch (...) {  // nobody would take what comes
    _receiver->leave(false);
    throw;
  }
}

}  // namespace kestrel::streams
