#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "cppmicroservices/Any.h"
#include "cppmicroservices/detail/Export.h"

namespace cppmicroservices {

class Bundle;
namespace detail {
class ServiceRecord;
}

/// Names a registered service, seen through one of its interfaces. A reference does not keep the service: it
/// turns invalid when the service is unregistered. Distinct objects may be used by different threads.
class CPPMICROSERVICES_EXPORT ServiceReferenceBase {
 public:
  ServiceReferenceBase();
  explicit ServiceReferenceBase(std::shared_ptr<detail::ServiceRecord> record, std::string interfaceId);
  ~ServiceReferenceBase();
  ServiceReferenceBase(const ServiceReferenceBase&);
  ServiceReferenceBase& operator=(const ServiceReferenceBase&);
  ServiceReferenceBase& operator=(std::nullptr_t);

  /// Whether the service is still registered.
  explicit operator bool() const;

  /// The property of that name, in any case; empty if there is none.
  [[nodiscard]] Any GetProperty(const std::string& key) const;
  /// The bundle that registered the service; an empty one once it is unregistered.
  [[nodiscard]] Bundle GetBundle() const;
  [[nodiscard]] std::string GetInterfaceId() const;
  [[nodiscard]] bool IsConvertibleTo(const std::string& interfaceId) const;

  /// Whether the other service is preferred: higher service.ranking, then lower service.id.
  bool operator<(const ServiceReferenceBase& other) const;
  bool operator==(const ServiceReferenceBase& other) const;

  [[nodiscard]] std::size_t Hash() const;

 protected:
  void setInterfaceId(std::string interfaceId);

 private:
  friend class ServiceObjectsBase;
  friend class BundleContext;
  friend class LDAPFilter;

  std::shared_ptr<detail::ServiceRecord> _record;
  std::string _interfaceId;
};

}  // namespace cppmicroservices
