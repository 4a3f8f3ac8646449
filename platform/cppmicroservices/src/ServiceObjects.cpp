#include "cppmicroservices/ServiceObjects.h"

#include <stdexcept>

#include "ContextData.hpp"
#include "ServiceRecord.hpp"

namespace cppmicroservices {

ServiceObjectsBase::ServiceObjectsBase(std::shared_ptr<detail::ContextData> context,
                                       const ServiceReferenceBase& reference)
    : _context(std::move(context)), _reference(reference) {
  if (!reference) {
    throw std::invalid_argument("Expected a reference to a registered service, got an invalid one");
  }
}

ServiceObjectsBase::~ServiceObjectsBase() = default;
ServiceObjectsBase::ServiceObjectsBase(ServiceObjectsBase&&) noexcept = default;
ServiceObjectsBase& ServiceObjectsBase::operator=(ServiceObjectsBase&&) noexcept = default;

std::shared_ptr<void> ServiceObjectsBase::getObject() const {
  if (!_reference) {
    return nullptr;
  }
  const auto& record = _reference._record;
  const auto user = _context->bundle();
  return record->isPrototype() ? record->newObject(_reference._interfaceId, user)
                               : record->bundleObject(_reference._interfaceId, user);
}

}  // namespace cppmicroservices
