#pragma once

#include <string>

namespace kestrel::streams {

/// Learns what happens to a connection, on a thread of the C client. Must not wait.
class ConnectionWatcher {
 public:
  virtual ~ConnectionWatcher() = default;
  virtual void disconnected() {}
  virtual void reconnected() {}
  virtual void closed(const std::string& why) { (void)why; }
};

}  // namespace kestrel::streams
