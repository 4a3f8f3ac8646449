#pragma once

#include "cppmicroservices/ServiceRegistrationBase.h"

namespace cppmicroservices {

/// The registration of a service under the interfaces named.
template <class I1, class... Interfaces>
class ServiceRegistration : public ServiceRegistrationBase {
 public:
  ServiceRegistration() = default;
  explicit ServiceRegistration(const ServiceRegistrationBase& base) : ServiceRegistrationBase(base) {}

  [[nodiscard]] ServiceReference<I1> GetReference() const {
    return ServiceRegistrationBase::GetReference(us_service_interface_iid<I1>());
  }
  using ServiceRegistrationBase::operator=;
};

template <>
class ServiceRegistration<void> : public ServiceRegistrationBase {
 public:
  ServiceRegistration() = default;
  ServiceRegistration(const ServiceRegistrationBase& base)  // NOLINT(google-explicit-constructor)
      : ServiceRegistrationBase(base) {}
  using ServiceRegistrationBase::operator=;
};
using ServiceRegistrationU = ServiceRegistration<void>;

}  // namespace cppmicroservices
