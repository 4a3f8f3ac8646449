#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceProperties.h"
#include "cppmicroservices/ServiceRegistration.h"
#include "cppmicroservices/detail/Export.h"

namespace cppmicroservices {

class Bundle;
class ServiceFactory;
template <class S>
class ServiceObjects;
namespace detail {
class ContextData;
template <class S>
const std::string& requiredInterfaceId();
}  // namespace detail

/// A running bundle's access to the framework. Every operation throws std::runtime_error "The bundle context
/// is no longer valid" once the bundle has stopped. Safe for several threads at once.
class CPPMICROSERVICES_EXPORT BundleContext {
 public:
  BundleContext();
  explicit BundleContext(std::shared_ptr<detail::ContextData> data);

  explicit operator bool() const;
  bool operator==(const BundleContext& other) const { return _data == other._data; }

  [[nodiscard]] Bundle GetBundle() const;
  /// The bundle of that number, or an empty one.
  [[nodiscard]] Bundle GetBundle(long id) const;
  [[nodiscard]] std::vector<Bundle> GetBundles() const;

  /// Installs the bundle in that shared object, or gives the one installed from there before. Throws
  /// std::runtime_error if it cannot be loaded or is no bundle.
  std::vector<Bundle> InstallBundles(const std::string& location);

  /// Registers a service; it goes when it is unregistered or this bundle stops.
  [[nodiscard]] ServiceRegistrationU RegisterService(const InterfaceMapConstPtr& service,
                                                     const ServiceProperties& properties = {});
  template <class I1, class... Interfaces, class Implementation>
  ServiceRegistration<I1, Interfaces...> RegisterService(const std::shared_ptr<Implementation>& object,
                                                         const ServiceProperties& properties = {}) {
    const InterfaceMapConstPtr map = MakeInterfaceMap<I1, Interfaces...>(object);
    return ServiceRegistration<I1, Interfaces...>(RegisterService(map, properties));
  }
  template <class I1, class... Interfaces>
  ServiceRegistration<I1, Interfaces...> RegisterService(const std::shared_ptr<ServiceFactory>& factory,
                                                         const ServiceProperties& properties = {}) {
    const InterfaceMapConstPtr map = MakeInterfaceMap<I1, Interfaces...>(factory);
    return ServiceRegistration<I1, Interfaces...>(RegisterService(map, properties));
  }

  /// The services with that interface which match the filter, the preferred one first: higher
  /// service.ranking, then lower service.id. Throws std::invalid_argument for a malformed filter.
  std::vector<ServiceReferenceU> GetServiceReferences(const std::string& interfaceId,
                                                      const std::string& filter = {});
  template <class S>
  std::vector<ServiceReference<S>> GetServiceReferences(const std::string& filter = {}) {
    const auto found = GetServiceReferences(detail::requiredInterfaceId<S>(), filter);
    return {found.begin(), found.end()};
  }

  /// The preferred service with that interface; an invalid reference if there is none.
  ServiceReferenceU GetServiceReference(const std::string& interfaceId);
  template <class S>
  ServiceReference<S> GetServiceReference() {
    return GetServiceReference(detail::requiredInterfaceId<S>());
  }

  /// The service object of this bundle; a null pointer if the service is gone. It stays usable for as long
  /// as the pointer is kept, also after the framework has stopped.
  std::shared_ptr<void> GetService(const ServiceReferenceBase& reference);
  template <class S>
  std::shared_ptr<S> GetService(const ServiceReference<S>& reference) {
    const ServiceReferenceBase& base = reference;
    return std::static_pointer_cast<S>(GetService(base));
  }

  /// Gives an object per call where the service has prototype scope.
  template <class S>
  ServiceObjects<S> GetServiceObjects(const ServiceReference<S>& reference) {
    if (!_data) {
      throw std::runtime_error("The bundle context is no longer valid");
    }
    return ServiceObjects<S>(_data, reference);
  }

 private:
  std::shared_ptr<detail::ContextData> _data;
};

template <class S>
const std::string& detail::requiredInterfaceId() {
  const auto& identifier = us_service_interface_iid<S>();
  if (identifier.empty()) {
    throw ServiceException(
        "The service interface has no identifier; declare one with "
        "CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE");
  }
  return identifier;
}

}  // namespace cppmicroservices
