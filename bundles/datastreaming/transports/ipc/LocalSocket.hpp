#pragma once

#include <cerrno>
#include <system_error>

#include "transports/ipc/ForkedSockets.hpp"

namespace kestrel::streams {

/// Owns a descriptor that ForkedSockets::open() gave.
class LocalSocket {
 public:
  /// Throws std::system_error if the call has failed.
  LocalSocket(int descriptor, const char* call) : _descriptor(descriptor) {
    if (descriptor < 0) throw std::system_error(errno, std::generic_category(), call);
  }
  ~LocalSocket() { ForkedSockets::close(_descriptor); }
  LocalSocket(const LocalSocket&) = delete;
  LocalSocket& operator=(const LocalSocket&) = delete;

  [[nodiscard]] int get() const { return _descriptor; }

 private:
  const int _descriptor;
};

}  // namespace kestrel::streams
