#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "BundleLibrary.hpp"
#include "ContextData.hpp"
#include "cppmicroservices/Bundle.h"

namespace cppmicroservices::detail {

/// One installed bundle. Safe for several threads at once.
class BundleData {
 public:
  /// Without a library: the framework's own bundle.
  BundleData(long id, std::string symbolicName, std::string location, std::optional<BundleLibrary> library);
  ~BundleData();
  BundleData(const BundleData&) = delete;
  BundleData& operator=(const BundleData&) = delete;

  [[nodiscard]] static const std::shared_ptr<BundleData>& of(const Bundle& bundle);

  [[nodiscard]] long id() const { return _id; }
  [[nodiscard]] const std::string& symbolicName() const { return _symbolicName; }
  [[nodiscard]] const std::string& location() const { return _location; }
  [[nodiscard]] bool isSystem() const { return !_library.has_value(); }
  [[nodiscard]] Bundle::State state() const;
  [[nodiscard]] BundleContext context() const;

  /// Starts and stops one at a time; each may be called from within the other, on the same thread.
  [[nodiscard]] std::unique_lock<std::recursive_mutex> lockOperation();

  /// See Bundle. The handle is the one for this bundle.
  void start(const Bundle& self);
  void stop(const Bundle& self);

  /// Begins a run: a new context, valid until endRun().
  BundleContext beginRun(const Bundle& self, Bundle::State state);
  /// Invalidates the context and takes the bundle's services out of the registry.
  void endRun(const Bundle& self);
  void setState(Bundle::State state);

 private:
  void activate(const Bundle& self, const BundleContext& context);
  void finish(const Bundle& self);

  const long _id;
  const std::string _symbolicName;
  const std::string _location;
  const std::optional<BundleLibrary> _library;

  std::recursive_mutex _operationMutex;  // held while the activator runs; taken before any other lock
  // Guarded by _operationMutex:
  BundleLibrary::ActivatorPointer _activator;

  mutable std::mutex _mutex;
  // Guarded by _mutex:
  Bundle::State _state = Bundle::STATE_INSTALLED;
  std::shared_ptr<ContextData> _context;
};

}  // namespace cppmicroservices::detail
