#pragma once

#include <functional>
#include <memory>
#include <string>

#include "cppmicroservices/BundleContext.h"

namespace cppmicroservices {
struct BundleActivator;
}

namespace cppmicroservices::detail {

/// The shared object of a bundle. It stays in the process for good: objects it made may outlive every handle.
class BundleLibrary {
 public:
  using ActivatorPointer = std::unique_ptr<BundleActivator, void (*)(BundleActivator*)>;

  /// Throws std::runtime_error, which names the file, if it cannot be loaded or is no bundle.
  explicit BundleLibrary(const std::string& path);

  [[nodiscard]] const std::string& symbolicName() const { return _symbolicName; }

  /// An empty pointer if the bundle has no activator.
  [[nodiscard]] ActivatorPointer createActivator() const;

  /// Sets what GetBundleContext() gives to the code in the bundle.
  void setContext(const BundleContext& context) const;

 private:
  void* _handle;
  std::string _symbolicName;
};

}  // namespace cppmicroservices::detail
