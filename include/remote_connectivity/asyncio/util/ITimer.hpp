#pragma once

#include <functional>

#include "remote_connectivity/asyncio/util/Export.hpp"

namespace remote_connectivity::asyncio::util {

/// A restartable one-shot timer; see Timer for threads.
class REMOTE_CONNECTIVITY_EXPORT ITimer {
 public:
  virtual ~ITimer();

  /// Replaces what is called at expiry.
  virtual void setCallback(std::function<void()>&& callback) = 0;

  /// Arms the timer for so many seconds from now. An expiry that is already armed stays armed.
  virtual void start(unsigned int seconds) = 0;

  /// stop() followed by start().
  virtual void restart(unsigned int seconds) = 0;

  /// Cancels the expiry armed last; no effect where there is none.
  virtual void stop() = 0;
};

}  // namespace remote_connectivity::asyncio::util
