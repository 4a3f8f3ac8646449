#pragma once

#include <string>

namespace kestrel::streams {

/// The folder that an endpoint "ipc:", "ipc:///path/of/a/folder" names: an absolute path, as it stands.
/// Without one it is a folder of the user's under the run-time folder of the login, or else under the
/// temporary folder. Throws std::runtime_error that says what was expected.
[[nodiscard]] std::string folderOf(const std::string& endpoint);

}  // namespace kestrel::streams
