#pragma once

#include <kestrel/callbacks/CallbackGate.hpp>
#include <kestrel/datastreaming/Types.hpp>
#include <memory>
#include <string>
#include <utility>

#include "delivery/StreamContext.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"

namespace kestrel::streams {

/// Takes the failures of one producer or consumer: each goes to the statistics at once, and on the reporter's
/// thread to the error callback. Only what no callback takes goes to the log: whoever set one logs by its own
/// rules, and a failure is not to be told twice. Safe from any thread.
class ErrorOutlet {
 public:
  explicit ErrorOutlet(std::shared_ptr<StreamContext> context) : _context(std::move(context)) {}

  void setCallback(datastreaming::ErrorCallback callback) { _slot->set(std::move(callback)); }

  /// Reports one failure; the text need not name the stream. It does not run the callback itself, which may
  /// however drop the outlet's owner before this returns: the caller holds the outlet and the owner's part of
  /// it ends here.
  void report(const std::string& text);

  /// After it has returned no error callback runs, unless it was called from inside one.
  void close() { _slot->close(); }

 private:
  /// The callback and its gate. The reporter's thread holds them without holding the reporter.
  class Slot {
   public:
    void set(datastreaming::ErrorCallback callback);
    /// Logs the text if there is no callback, if it is closed, or if it fails.
    void call(const std::string& text);
    void close();

   private:
    callbacks::CallbackGate _gate;
    callbacks::Mutex _mutex;
    std::shared_ptr<const datastreaming::ErrorCallback> _callback KESTREL_GUARDED_BY(_mutex);
  };

  const std::shared_ptr<StreamContext> _context;
  const std::shared_ptr<Slot> _slot = std::make_shared<Slot>();
};

}  // namespace kestrel::streams
