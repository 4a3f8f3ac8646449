#include "cppmicroservices/ServiceReferenceBase.h"

#include <algorithm>
#include <functional>

#include "ServiceRecord.hpp"
#include "cppmicroservices/Bundle.h"

namespace cppmicroservices {

ServiceReferenceBase::ServiceReferenceBase() = default;
ServiceReferenceBase::ServiceReferenceBase(std::shared_ptr<detail::ServiceRecord> record,
                                           std::string interfaceId)
    : _record(std::move(record)), _interfaceId(std::move(interfaceId)) {}
ServiceReferenceBase::~ServiceReferenceBase() = default;
ServiceReferenceBase::ServiceReferenceBase(const ServiceReferenceBase&) = default;
ServiceReferenceBase& ServiceReferenceBase::operator=(const ServiceReferenceBase&) = default;

ServiceReferenceBase& ServiceReferenceBase::operator=(std::nullptr_t) {
  _record.reset();
  _interfaceId.clear();
  return *this;
}

ServiceReferenceBase::operator bool() const {
  return _record && _record->isRegistered();
}

Any ServiceReferenceBase::GetProperty(const std::string& key) const {
  if (!_record) {
    return {};
  }
  const auto properties = _record->properties();
  const Any* value = detail::findProperty(*properties, key);
  return value == nullptr ? Any() : *value;
}

Bundle ServiceReferenceBase::GetBundle() const {
  return _record ? _record->owner() : Bundle();
}

std::string ServiceReferenceBase::GetInterfaceId() const {
  return _interfaceId;
}

bool ServiceReferenceBase::IsConvertibleTo(const std::string& interfaceId) const {
  return _record && std::ranges::binary_search(_record->interfaces(), interfaceId);
}

bool ServiceReferenceBase::operator<(const ServiceReferenceBase& other) const {
  if (_record == other._record || !other) {
    return false;
  }
  if (!*this) {
    return true;
  }
  const int ours = _record->ranking();
  const int theirs = other._record->ranking();
  return ours != theirs ? ours < theirs : _record->id() > other._record->id();
}

bool ServiceReferenceBase::operator==(const ServiceReferenceBase& other) const {
  return _record == other._record;
}

std::size_t ServiceReferenceBase::Hash() const {
  return std::hash<void*>()(_record.get());
}

void ServiceReferenceBase::setInterfaceId(std::string interfaceId) {
  _interfaceId = std::move(interfaceId);
}

}  // namespace cppmicroservices
