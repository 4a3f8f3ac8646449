#include "cppmicroservices/BundleContext.h"

#include <algorithm>

#include "ContextData.hpp"
#include "FrameworkCore.hpp"

namespace cppmicroservices {

namespace {

Bundle bundleOf(const std::shared_ptr<detail::ContextData>& data) {
  if (!data) {
    detail::ContextData::fail();
  }
  return data->bundle();
}

}  // namespace

BundleContext::BundleContext() = default;
BundleContext::BundleContext(std::shared_ptr<detail::ContextData> data) : _data(std::move(data)) {}

BundleContext::operator bool() const {
  return _data && _data->isValid();
}

Bundle BundleContext::GetBundle() const {
  return bundleOf(_data);
}

Bundle BundleContext::GetBundle(long id) const {
  const auto all = GetBundles();
  const auto found = std::ranges::find(all, id, &Bundle::GetBundleId);
  return found == all.end() ? Bundle() : *found;
}

std::vector<Bundle> BundleContext::GetBundles() const {
  return detail::FrameworkCore::of(bundleOf(_data))->bundles();
}

std::vector<Bundle> BundleContext::InstallBundles(const std::string& location) {
  return {detail::FrameworkCore::of(bundleOf(_data))->install(location)};
}

ServiceRegistrationU BundleContext::RegisterService(const InterfaceMapConstPtr& service,
                                                    const ServiceProperties& properties) {
  const auto owner = bundleOf(_data);
  return ServiceRegistrationBase(
      detail::FrameworkCore::of(owner)->services().add(*_data, owner, service, properties));
}

std::vector<ServiceReferenceU> BundleContext::GetServiceReferences(const std::string& interfaceId,
                                                                   const std::string& filter) {
  const auto user = bundleOf(_data);
  const auto records = detail::FrameworkCore::of(user)->services().find(
      interfaceId, filter.empty() ? LDAPFilter() : LDAPFilter(filter));
  std::vector<ServiceReferenceU> references;
  std::ranges::transform(records, std::back_inserter(references), [&interfaceId](const auto& record) {
    return ServiceReferenceBase(record, interfaceId);
  });
  return references;
}

ServiceReferenceU BundleContext::GetServiceReference(const std::string& interfaceId) {
  const auto references = GetServiceReferences(interfaceId);
  return references.empty() ? ServiceReferenceU() : references.front();
}

std::shared_ptr<void> BundleContext::GetService(const ServiceReferenceBase& reference) {
  const auto user = bundleOf(_data);
  if (!reference._record) {
    throw std::invalid_argument("Expected a reference to a service, got an empty one");
  }
  return reference._record->bundleObject(reference._interfaceId, user);
}

}  // namespace cppmicroservices
