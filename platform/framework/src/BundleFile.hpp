#pragma once

#include <filesystem>

namespace kestrel::framework {

/// Throws std::runtime_error, which says what was expected, if the file is not a whole shared object or not a
/// bundle. To be asked before the file is loaded: the loader maps what the headers say, so a file that was
/// cut short would end the process with SIGBUS, and loading a shared object runs its initialisers. Nothing
/// of the file is mapped or run here.
void checkBundleFile(const std::filesystem::path& file);

}  // namespace kestrel::framework
