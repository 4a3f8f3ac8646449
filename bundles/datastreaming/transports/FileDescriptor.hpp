#pragma once

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace kestrel::streams {

/// What the newest failure of a call of the system means.
inline std::string lastError() {
  return std::generic_category().message(errno);
}

/// Owns a file descriptor.
class FileDescriptor {
 public:
  /// Throws std::system_error if the call that gave it has failed.
  FileDescriptor(int descriptor, const char* call) : _descriptor(descriptor) {
    if (descriptor < 0) throw std::system_error(errno, std::generic_category(), call);
  }
  ~FileDescriptor() { ::close(_descriptor); }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  [[nodiscard]] int get() const { return _descriptor; }

 private:
  const int _descriptor;
};

}  // namespace kestrel::streams
