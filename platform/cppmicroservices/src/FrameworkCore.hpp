#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "BundleData.hpp"
#include "ServiceRegistry.hpp"
#include "cppmicroservices/Bundle.h"

namespace cppmicroservices::detail {

/// One framework: its bundles and services. Handles share it; contexts and services know it weakly. Safe for
/// several threads at once.
class FrameworkCore : public std::enable_shared_from_this<FrameworkCore> {
 public:
  FrameworkCore();

  [[nodiscard]] static const std::shared_ptr<FrameworkCore>& of(const Bundle& bundle);

  [[nodiscard]] ServiceRegistry& services() { return _services; }
  [[nodiscard]] Bundle systemBundle();
  [[nodiscard]] std::vector<Bundle> bundles();
  [[nodiscard]] bool isRunning() const;

  /// See BundleContext::InstallBundles().
  [[nodiscard]] Bundle install(const std::string& location);

  void init();
  void start();
  void stop();
  /// Whether the framework came to rest in that time; zero waits for ever.
  bool waitForStop(std::chrono::milliseconds timeout);

 private:
  [[nodiscard]] Bundle handle(const std::shared_ptr<BundleData>& data);
  [[nodiscard]] std::shared_ptr<BundleData> findByLocation(const std::string& location);  // under _mutex

  const std::shared_ptr<BundleData> _system;
  ServiceRegistry _services;

  std::mutex _mutex;
  std::condition_variable _stopped;  // waits for _running to turn false
  // Guarded by _mutex:
  std::vector<std::shared_ptr<BundleData>> _bundles;  // by number, the system bundle first
  long _nextId = 1;
  bool _running = false;
};

}  // namespace cppmicroservices::detail
