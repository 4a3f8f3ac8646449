#include "ServiceRecord.hpp"

#include <algorithm>

#include "BundleData.hpp"
#include "ConstantNames.hpp"
#include "FrameworkCore.hpp"
#include "ServiceInstance.hpp"
#include "TextCase.hpp"
#include "cppmicroservices/PrototypeServiceFactory.h"

namespace cppmicroservices::detail {

namespace {

std::shared_ptr<ServiceFactory> factoryOf(const InterfaceMapConstPtr& service) {
  return std::static_pointer_cast<ServiceFactory>(ExtractInterface(service, factoryKey));
}

std::vector<std::string> interfacesOf(const InterfaceMapConstPtr& service) {
  std::vector<std::string> names;
  if (service) {
    const bool made = service->contains(factoryKey);
    for (const auto& [name, object] : *service) {
      if (name.empty()) {
        throw ServiceException(
            "The service interface has no identifier; declare one with "
            "CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE");
      }
      if (!object && !made) {
        throw ServiceException("Expected a service object for the interface \"" + name +
                               "\", got a null pointer");
      }
      if (name != factoryKey) {
        names.push_back(name);
      }
    }
  }
  if (names.empty()) {
    throw ServiceException("Expected a service with at least one interface, got none");
  }
  std::ranges::sort(names);
  return names;
}

std::string scopeOf(const InterfaceMapConstPtr& service) {
  const auto factory = factoryOf(service);
  if (!factory) {
    return names::scopeSingleton;
  }
  return std::dynamic_pointer_cast<PrototypeServiceFactory>(factory) ? names::scopePrototype
                                                                     : names::scopeBundle;
}

bool implementsAll(const InterfaceMapConstPtr& objects, const std::vector<std::string>& interfaces) {
  return objects && std::ranges::all_of(interfaces, [&objects](const std::string& name) {
           return ExtractInterface(objects, name) != nullptr;
         });
}

std::shared_ptr<void> objectOf(const std::shared_ptr<ServiceInstance>& instance,
                               const std::string& interfaceId) {
  return instance ? std::shared_ptr<void>(instance, ExtractInterface(instance->objects(), interfaceId).get())
                  : nullptr;
}

}  // namespace

const Any* findProperty(const ServiceProperties& properties, const std::string& name) {
  const auto found = std::ranges::find_if(
      properties, [&name](const auto& property) { return equalIgnoringCase(property.first, name); });
  return found == properties.end() ? nullptr : &found->second;
}

ServiceRecord::ServiceRecord(long id, const Bundle& owner, InterfaceMapConstPtr service,
                             const ServiceProperties& properties)
    : _id(id),
      _core(FrameworkCore::of(owner)),
      _owner(BundleData::of(owner)),
      _interfaces(interfacesOf(service)),
      _scope(scopeOf(service)),
      _service(std::move(service)) {
  setProperties(properties);
}

ServiceRecord::~ServiceRecord() = default;

bool ServiceRecord::isPrototype() const {
  return _scope == names::scopePrototype;
}

bool ServiceRecord::isRegistered() const {
  return service() != nullptr;
}

int ServiceRecord::ranking() const {
  const auto all = properties();
  const int* ranking = any_cast<int>(findProperty(*all, names::serviceRanking));
  return ranking == nullptr ? 0 : *ranking;
}

Bundle ServiceRecord::owner() const {
  auto core = _core.lock();
  auto data = _owner.lock();
  return core && data && isRegistered() ? Bundle(std::move(core), std::move(data)) : Bundle();
}

std::shared_ptr<const ServiceProperties> ServiceRecord::properties() const {
  const std::lock_guard lock(_mutex);
  return _properties;
}

void ServiceRecord::setProperties(const ServiceProperties& properties) {
  auto all = std::make_shared<ServiceProperties>(properties);
  for (const std::string_view reserved : {names::objectClass, names::serviceId, names::serviceScope}) {
    std::erase_if(*all, [&](const auto& property) { return equalIgnoringCase(property.first, reserved); });
  }
  all->insert_or_assign(names::objectClass, Any(_interfaces));
  all->insert_or_assign(names::serviceId, Any(_id));
  all->insert_or_assign(names::serviceScope, Any(_scope));
  const std::lock_guard lock(_mutex);
  _properties = std::move(all);
}

InterfaceMapConstPtr ServiceRecord::service() const {
  const std::lock_guard lock(_mutex);
  return _service;
}

ServiceRecord::InstancePointer ServiceRecord::makeInstance(const InterfaceMapConstPtr& service,
                                                           const Bundle& user) {
  const auto factory = factoryOf(service);
  const ServiceRegistrationBase registration(shared_from_this());
  InterfaceMapConstPtr objects;
  try {
    objects = factory->GetService(user, registration);
  } catch (const std::exception&) {  // as documented for factories: the caller gets no service
    return nullptr;
  }
  return implementsAll(objects, _interfaces)
             ? std::make_shared<ServiceInstance>(factory, user, registration, std::move(objects))
             : nullptr;
}

bool ServiceRecord::remember(const InstancePointer& instance) {
  const std::lock_guard lock(_mutex);
  std::erase_if(_instances, [](const auto& known) { return known.expired(); });
  _instances.push_back(instance);
  return _service != nullptr;
}

ServiceRecord::InstancePointer ServiceRecord::instanceOf(long bundle) const {
  const std::lock_guard lock(_mutex);
  const auto found = _bundleInstances.find(bundle);
  return found == _bundleInstances.end() ? nullptr : found->second.lock();
}

std::shared_ptr<void> ServiceRecord::bundleObject(const std::string& interfaceId, const Bundle& user) {
  const auto registered = service();
  if (!registered || !factoryOf(registered)) {
    return ExtractInterface(registered, interfaceId);
  }
  const auto number = user.GetBundleId();
  if (const auto instance = instanceOf(number)) {
    return objectOf(instance, interfaceId);
  }
  const auto instance = makeInstance(registered, user);
  if (!instance || !remember(instance)) {
    return nullptr;
  }
  return objectOf(firstInstance(number, instance), interfaceId);
}

/// Another thread may have been faster: its instance is the bundle's then, and ours goes back to the factory,
/// outside the lock.
ServiceRecord::InstancePointer ServiceRecord::firstInstance(long bundle, const InstancePointer& made) {
  const std::lock_guard lock(_mutex);
  auto& known = _bundleInstances[bundle];
  if (auto chosen = known.lock()) {
    return chosen;
  }
  known = made;
  return made;
}

std::shared_ptr<void> ServiceRecord::newObject(const std::string& interfaceId, const Bundle& user) {
  const auto registered = service();
  if (!registered) {
    return nullptr;
  }
  const auto instance = makeInstance(registered, user);
  return instance && remember(instance) ? objectOf(instance, interfaceId) : nullptr;
}

bool ServiceRecord::retire() {
  InterfaceMapConstPtr service;
  std::vector<std::weak_ptr<ServiceInstance>> instances;
  {
    const std::lock_guard lock(_mutex);
    service.swap(_service);
    instances.swap(_instances);
    _bundleInstances.clear();
  }
  for (const auto& known : instances) {
    if (const auto instance = known.lock()) {
      instance->release();
    }
  }
  return service != nullptr;
}

}  // namespace cppmicroservices::detail
