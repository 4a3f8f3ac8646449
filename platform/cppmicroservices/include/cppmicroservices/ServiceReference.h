#pragma once

#include <functional>

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceReferenceBase.h"

namespace cppmicroservices {

/// A reference to a service seen as an S; empty if the service has no such interface.
template <class S>
class ServiceReference : public ServiceReferenceBase {
 public:
  using ServiceType = S;

  ServiceReference() = default;
  ServiceReference(const ServiceReferenceBase& base)  // NOLINT(google-explicit-constructor)
      : ServiceReferenceBase(base) {
    const auto& identifier = us_service_interface_iid<S>();
    if (GetInterfaceId() == identifier) {
      return;
    }
    if (IsConvertibleTo(identifier)) {
      setInterfaceId(identifier);
    } else {
      *this = nullptr;
    }
  }
  using ServiceReferenceBase::operator=;
};

template <>
class ServiceReference<void> : public ServiceReferenceBase {
 public:
  using ServiceType = void;

  ServiceReference() = default;
  ServiceReference(const ServiceReferenceBase& base)  // NOLINT(google-explicit-constructor)
      : ServiceReferenceBase(base) {}
  using ServiceReferenceBase::operator=;
};
using ServiceReferenceU = ServiceReference<void>;

}  // namespace cppmicroservices

template <class S>
struct std::hash<cppmicroservices::ServiceReference<S>> {
  std::size_t operator()(const cppmicroservices::ServiceReference<S>& reference) const {
    return reference.Hash();
  }
};
