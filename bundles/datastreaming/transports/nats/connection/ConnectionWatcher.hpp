#pragma once

#include <string>

namespace kestrel::streams {

/// Learns what happens to a connection, on the thread that keeps it up. Must not wait.
class ConnectionWatcher {
 public:
  virtual ~ConnectionWatcher() = default;
  virtual void disconnected() {}
  virtual void reconnected() {}
  virtual void closed(const std::string& why) { (void)why; }
};

}  // namespace kestrel::streams
