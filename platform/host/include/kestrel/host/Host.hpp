#pragma once

#include <filesystem>
#include <memory>

#include "kestrel/export/Export.hpp"

namespace kestrel::host {

struct HostOptions {
  std::filesystem::path installPath;  ///< overrides where the installation is looked for, if not empty
  bool registerThreadPool = true;     ///< false if a service of the caller's own takes that place
};

/// Makes this process a host: runs a service framework, makes it known to the library and registers the
/// services that the library expects, until it is destroyed. Programs that have no framework of their own
/// make one at the start of main().
///
/// There is one at a time; another may follow when it is destroyed. Messengers and factories should be
/// destroyed first: those left keep working as far as they need no lookup, but the bundles behind them are
/// told to stop. Construct and destroy it on threads that are neither the pool's nor a bundle's.
class KESTREL_EXPORT Host {
 public:
  /// Throws std::logic_error if the process has a framework already.
  explicit Host(const HostOptions& options = {});

  /// Makes the framework unknown, stops it with its bundles and waits for that, then lets go of the pool.
  /// Calls on other threads that are looking up a service meanwhile find none, or get the framework's
  /// std::runtime_error "The bundle context is no longer valid".
  ~Host();

  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

 private:
  class Run;
  std::unique_ptr<Run> _run;
};

}  // namespace kestrel::host
