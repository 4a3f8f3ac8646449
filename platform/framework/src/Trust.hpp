#pragma once

#include <filesystem>
#include <string>

namespace kestrel::framework {

/// Why code that lies there must not run in this process; empty if it may. It may if the file or folder, and
/// every folder above it, belongs to root or to the effective user and nobody else may write to it. The path
/// must be canonical: absolute and without symbolic links.
///
/// The group may have the right to write if it is the owner's private group: one of the owner's name without
/// other members, as systems have it whose users work with a umask of 002. Folders above may be open to all
/// with the sticky bit, as /tmp is, since nobody can exchange there what belongs to others.
[[nodiscard]] std::string whyUntrusted(const std::filesystem::path& path);

}  // namespace kestrel::framework
