#pragma once

#include <string>
#include <string_view>

#include "kestrel/export/Export.hpp"

namespace kestrel::framework {

/// The directory the host is installed in, without a trailing separator. What setInstallPath() has set comes
/// first, then the environment variable KESTREL_INSTALL_PATH (not in a process with more rights than its
/// caller, as a setuid program has them), then the nearest directory above this library that holds
/// bin/osarch64. Empty if there is none. Any thread, save that the environment must not change meanwhile.
[[nodiscard]] KESTREL_EXPORT std::u16string get_install_path();

/// For hosts: overrides the installation directory; an empty path takes the override back. Any thread.
KESTREL_EXPORT void setInstallPath(std::u16string path);

/// The path with the platform's separators. With collapse, repeated separators and "." and ".." components
/// are resolved in the text, and a trailing separator goes.
[[nodiscard]] KESTREL_EXPORT std::u16string make_native_form(const std::u16string& path, bool collapse);

/// The path with the component appended. With separate, a separator goes between them where none is yet. An
/// empty component leaves the path as it is, and an empty path gives the component.
[[nodiscard]] KESTREL_EXPORT std::u16string concatenate_pathname(const std::u16string& path,
                                                                 const std::u16string& component,
                                                                 bool separate);

/// UTF-16 to UTF-8 and back. Throw std::invalid_argument for text that is not well formed.
[[nodiscard]] KESTREL_EXPORT std::string toNarrow(std::u16string_view text);
[[nodiscard]] KESTREL_EXPORT std::u16string toWide(std::string_view text);

}  // namespace kestrel::framework
