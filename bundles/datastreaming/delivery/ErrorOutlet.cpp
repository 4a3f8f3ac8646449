#include "delivery/ErrorOutlet.hpp"

#include <exception>
#include <stdexcept>

#include "delivery/Log.hpp"

namespace kestrel::streams {

void ErrorOutlet::report(const std::string& text) {
  std::string full = _context->label() + ": " + text;
  _context->counters.setLastError(full);
  _context->reporter->post([slot = _slot, full = std::move(full)] { slot->call(full); });
}

void ErrorOutlet::Slot::set(datastreaming::ErrorCallback callback) {
  auto shared =
      callback ? std::make_shared<const datastreaming::ErrorCallback>(std::move(callback)) : nullptr;
  const callbacks::MutexLock lock(_mutex);
  _callback.swap(shared);
}

void ErrorOutlet::Slot::call(const std::string& text) {
  std::shared_ptr<const datastreaming::ErrorCallback> callback;
  {
    const callbacks::MutexLock lock(_mutex);
    callback = _callback;
  }
  std::string remark;
  try {
    if (callback && _gate.run([&] { (*callback)(std::runtime_error(text)); })) return;
  } catch (const std::exception& error) {
    remark = " (an error callback failed: " + std::string(error.what()) + ")";
  } catch (...) {
    remark = " (an error callback failed)";
  }
  logError(text + remark);
}

void ErrorOutlet::Slot::close() {
  _gate.close();
  set(nullptr);
}

}  // namespace kestrel::streams
