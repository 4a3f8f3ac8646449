#include "cppmicroservices/ServiceRegistrationBase.h"

#include <stdexcept>

#include "FrameworkCore.hpp"
#include "ServiceRecord.hpp"

namespace cppmicroservices {

ServiceRegistrationBase::ServiceRegistrationBase() = default;
ServiceRegistrationBase::ServiceRegistrationBase(std::shared_ptr<detail::ServiceRecord> record)
    : _record(std::move(record)) {}
ServiceRegistrationBase::~ServiceRegistrationBase() = default;
ServiceRegistrationBase::ServiceRegistrationBase(const ServiceRegistrationBase&) = default;
ServiceRegistrationBase::ServiceRegistrationBase(ServiceRegistrationBase&&) noexcept = default;
ServiceRegistrationBase& ServiceRegistrationBase::operator=(const ServiceRegistrationBase&) = default;
ServiceRegistrationBase& ServiceRegistrationBase::operator=(ServiceRegistrationBase&&) noexcept = default;

ServiceRegistrationBase& ServiceRegistrationBase::operator=(std::nullptr_t) {
  _record.reset();
  return *this;
}

ServiceRegistrationBase::operator bool() const {
  return _record && _record->isRegistered();
}

bool ServiceRegistrationBase::operator==(const ServiceRegistrationBase& other) const {
  return _record == other._record;
}

detail::ServiceRecord& ServiceRegistrationBase::record() const {
  if (!*this) {
    throw std::logic_error("The service is no longer registered");
  }
  return *_record;
}

ServiceReferenceBase ServiceRegistrationBase::GetReference(const std::string& interfaceId) const {
  return ServiceReferenceBase(record().shared_from_this(), interfaceId);
}

void ServiceRegistrationBase::SetProperties(const ServiceProperties& properties) {
  record().setProperties(properties);
}

void ServiceRegistrationBase::Unregister() {
  const auto owner = record().owner();
  if (!owner || !detail::FrameworkCore::of(owner)->services().remove(_record)) {
    throw std::logic_error("The service is no longer registered");
  }
}

}  // namespace cppmicroservices
