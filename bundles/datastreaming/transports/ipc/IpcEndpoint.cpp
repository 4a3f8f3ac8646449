#include "transports/ipc/IpcEndpoint.hpp"

#include <stdlib.h>
#include <unistd.h>

#include <stdexcept>

namespace kestrel::streams {

namespace {

/// Not in a process with more rights than its caller, whose environment that is.
std::string variable(const char* name) {
  const char* const value = ::secure_getenv(name);
  return value != nullptr && value[0] == '/' ? value : "";
}

std::string privateFolder() {
  const std::string runTime = variable("XDG_RUNTIME_DIR");
  if (!runTime.empty()) return runTime + "/kestrel-streams";
  const std::string temporary = variable("TMPDIR");
  return (temporary.empty() ? "/tmp" : temporary) + "/kestrel-streams-" + std::to_string(::geteuid());
}

}  // namespace

std::string folderOf(const std::string& endpoint) {
  const std::string rest = endpoint.substr(endpoint.find(':') + 1);
  if (rest.empty() || rest == "//") return privateFolder();
  const bool absolute = rest.starts_with("///") && rest.size() > 3;
  if (!absolute || rest.find('?') != std::string::npos || rest.find('\0') != std::string::npos) {
    throw std::runtime_error(
        "an endpoint for streams between processes of one machine is ipc: or ipc:///path/of/a/folder, with "
        "an absolute path and without options");
  }
  return rest.substr(2);
}

}  // namespace kestrel::streams
