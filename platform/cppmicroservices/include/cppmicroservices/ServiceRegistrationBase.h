#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "cppmicroservices/ServiceProperties.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/detail/Export.h"

namespace cppmicroservices {

/// The registrant's hold on a service. Dropping it leaves the service registered until its bundle stops.
/// Safe for several threads at once.
class CPPMICROSERVICES_EXPORT ServiceRegistrationBase {
 public:
  ServiceRegistrationBase();
  explicit ServiceRegistrationBase(std::shared_ptr<detail::ServiceRecord> record);
  ~ServiceRegistrationBase();
  ServiceRegistrationBase(const ServiceRegistrationBase&);
  ServiceRegistrationBase(ServiceRegistrationBase&&) noexcept;
  ServiceRegistrationBase& operator=(const ServiceRegistrationBase&);
  ServiceRegistrationBase& operator=(ServiceRegistrationBase&&) noexcept;
  ServiceRegistrationBase& operator=(std::nullptr_t);

  explicit operator bool() const;
  bool operator==(const ServiceRegistrationBase& other) const;

  /// Throws std::logic_error once the service is unregistered.
  [[nodiscard]] ServiceReferenceBase GetReference(const std::string& interfaceId = {}) const;

  /// Replaces the properties, save those the registry sets itself. Throws std::logic_error once the service
  /// is unregistered.
  void SetProperties(const ServiceProperties& properties);

  /// Takes the service out of the registry; objects already handed out stay usable. Throws std::logic_error
  /// if it was unregistered before.
  void Unregister();

 private:
  [[nodiscard]] CPPMICROSERVICES_LOCAL detail::ServiceRecord& record() const;

  std::shared_ptr<detail::ServiceRecord> _record;
};

}  // namespace cppmicroservices
