#pragma once

#include <chrono>
#include <memory>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/FrameworkEvent.h"
#include "cppmicroservices/detail/Export.h"

namespace cppmicroservices {

/// A handle to a framework: the bundle that all others live in. Start() makes it ready for bundles and
/// services, Stop() stops every bundle, the latest first, and takes all services out of the registry. The
/// framework stops when its last Framework handle goes. Safe for several threads at once.
class CPPMICROSERVICES_EXPORT Framework : public Bundle {
 public:
  /// Makes the context usable without running the framework.
  void Init();

  /// Waits until the framework does not run, at most that long; zero waits for ever.
  FrameworkEvent WaitForStop(const std::chrono::milliseconds& timeout);

 private:
  friend class FrameworkFactory;
  CPPMICROSERVICES_LOCAL explicit Framework(std::shared_ptr<detail::FrameworkCore> core);

  std::shared_ptr<void> _stopOnRelease;
};

}  // namespace cppmicroservices
