#pragma once

#include <kestrel/datastreaming/Types.hpp>
#include <memory>
#include <mutex>
#include <string>

#include "transports/shared/CallbackGate.hpp"
#include "transports/shared/StreamContext.hpp"

namespace kestrel::streams {

/// Takes the failures of one producer or consumer: each goes to the statistics at once, and on the reporter's
/// thread to the log and to the error callback. Safe from any thread, held by shared pointers.
class ErrorOutlet : public std::enable_shared_from_this<ErrorOutlet> {
 public:
  explicit ErrorOutlet(std::shared_ptr<StreamContext> context) : _context(std::move(context)) {}

  void setCallback(datastreaming::ErrorCallback callback);

  /// Reports one failure; the text need not name the stream. It does not run the callback itself.
  void report(const std::string& text);

  /// After it has returned no error callback runs, unless it was called from inside one.
  void close();

 private:
  void tell(const std::string& text);

  const std::shared_ptr<StreamContext> _context;
  CallbackGate _gate;
  std::mutex _mutex;
  std::shared_ptr<const datastreaming::ErrorCallback> _callback;  // guarded by _mutex
};

}  // namespace kestrel::streams
