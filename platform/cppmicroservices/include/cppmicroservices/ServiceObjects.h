#pragma once

#include <memory>

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/PrototypeServiceFactory.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/detail/Export.h"

namespace cppmicroservices {

/// The part of ServiceObjects that does not depend on the interface.
class CPPMICROSERVICES_EXPORT ServiceObjectsBase {
 public:
  ServiceObjectsBase(const ServiceObjectsBase&) = delete;
  ServiceObjectsBase& operator=(const ServiceObjectsBase&) = delete;
  ServiceObjectsBase(ServiceObjectsBase&&) noexcept;
  ServiceObjectsBase& operator=(ServiceObjectsBase&&) noexcept;

 protected:
  ServiceObjectsBase(std::shared_ptr<detail::ContextData> context, const ServiceReferenceBase& reference);
  ~ServiceObjectsBase();

  [[nodiscard]] std::shared_ptr<void> getObject() const;

  std::shared_ptr<detail::ContextData> _context;
  ServiceReferenceBase _reference;
};

/// Gives out objects of a service: one per call if it has prototype scope, else the bundle's own. An object
/// is let go of when the last pointer to it goes. Throws std::invalid_argument for an invalid reference.
template <class S>
class ServiceObjects : private ServiceObjectsBase {
 public:
  /// A null pointer once the service is unregistered, or when its factory made none.
  [[nodiscard]] std::shared_ptr<S> GetService() const { return std::static_pointer_cast<S>(getObject()); }
  [[nodiscard]] ServiceReference<S> GetServiceReference() const { return _reference; }

 private:
  friend class BundleContext;
  ServiceObjects(const std::shared_ptr<detail::ContextData>& context, const ServiceReference<S>& reference)
      : ServiceObjectsBase(context, reference) {}
};

}  // namespace cppmicroservices
