#pragma once

#include <cppmicroservices/Bundle.h>

#include <string>
#include <vector>

#include "kestrel/export/Export.hpp"

namespace kestrel::framework {

/// Installs every bundle (*.so) that lies in the directory, but not below it, into the host's framework, in
/// the order of their names, and starts them. Bundles that are there already are started if need be and
/// returned again. The list is empty if there is no bundle or no such directory, or if the path is relative.
/// In a host without a framework nothing is installed, and the list has an empty handle for each bundle
/// found, so that the caller can tell this from an installation without bundles.
///
/// A file or directory that others than root and the effective user could change is passed over with an error
/// in the log: one that belongs to somebody else, or that all users or a group may write, or that lies below
/// such a folder. The owner's private group may write; folders above may have the sticky bit, as /tmp has.
///
/// Throws std::runtime_error, which names the file, if a bundle cannot be installed or started; those before
/// it keep running. A file that is no bundle, or not a whole one, is refused so before any of its code runs.
/// Calls wait for each other. Must not be called by a bundle's activator.
[[nodiscard]] KESTREL_EXPORT std::vector<cppmicroservices::Bundle> installAndStart(
    const std::u16string& directory);

}  // namespace kestrel::framework
