#pragma once

#include <memory>
#include <string>
#include <typeinfo>
#include <unordered_map>
#include <utility>

#include "cppmicroservices/ServiceException.h"
#include "cppmicroservices/detail/Export.h"

namespace cppmicroservices {

class ServiceFactory;

/// The interfaces of one service object, by interface identifier.
using InterfaceMap = std::unordered_map<std::string, std::shared_ptr<void>>;
using InterfaceMapPtr = std::shared_ptr<InterfaceMap>;
using InterfaceMapConstPtr = std::shared_ptr<const InterfaceMap>;

namespace detail {

CPPMICROSERVICES_EXPORT std::string demangledName(const std::type_info& type);

/// The entry of an interface map under which a service factory stands. Never destroyed.
CPPMICROSERVICES_EXPORT extern const std::string& factoryKey;

}  // namespace detail
}  // namespace cppmicroservices

/// The identifier under which the registry knows an interface: its demangled name, unless declared otherwise.
/// Identifiers are never destroyed, as threads may look services up while the process ends.
template <class T>
const std::string& us_service_interface_iid() {
  static const auto* const identifier =
      new std::string(cppmicroservices::detail::demangledName(typeid(T)));
  return *identifier;
}
template <>
inline const std::string& us_service_interface_iid<void>() {
  static const auto* const none = new std::string;
  return *none;
}

/// Gives an interface its identifier. To be used in the global namespace, in the header of the interface.
#define CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(interfaceType, interfaceIdentifier) \
  template <>                                                                          \
  inline const std::string& us_service_interface_iid<interfaceType>() {                \
    static const auto* const identifier = new std::string(interfaceIdentifier);        \
    return *identifier;                                                                \
  }

namespace cppmicroservices {

/// Builds the interface map of an object, or of what a factory will make.
template <class... Interfaces>
class MakeInterfaceMap {
 public:
  template <class Implementation>
  explicit MakeInterfaceMap(const std::shared_ptr<Implementation>& object) {
    (_map->emplace(us_service_interface_iid<Interfaces>(),
                   std::static_pointer_cast<void>(std::static_pointer_cast<Interfaces>(object))),
     ...);
  }
  explicit MakeInterfaceMap(const std::shared_ptr<ServiceFactory>& factory) {
    if (!factory) {
      throw ServiceException("Expected a service factory, got a null pointer");
    }
    (_map->emplace(us_service_interface_iid<Interfaces>(), nullptr), ...);
    _map->emplace(detail::factoryKey, factory);
  }

  operator InterfaceMapPtr() const { return _map; }       // NOLINT(google-explicit-constructor)
  operator InterfaceMapConstPtr() const { return _map; }  // NOLINT(google-explicit-constructor)

 private:
  InterfaceMapPtr _map = std::make_shared<InterfaceMap>();
};

/// The object under that interface, or a null pointer.
inline std::shared_ptr<void> ExtractInterface(const InterfaceMapConstPtr& map,
                                              const std::string& identifier) {
  if (!map) {
    return nullptr;
  }
  const auto found = map->find(identifier);
  return found == map->end() ? nullptr : found->second;
}
template <class Interface>
std::shared_ptr<Interface> ExtractInterface(const InterfaceMapConstPtr& map) {
  return std::static_pointer_cast<Interface>(ExtractInterface(map, us_service_interface_iid<Interface>()));
}

/// A factory as BundleContext::RegisterService() takes it.
template <class T>
std::shared_ptr<ServiceFactory> ToFactory(const std::shared_ptr<T>& factory) {
  return std::static_pointer_cast<ServiceFactory>(factory);
}

}  // namespace cppmicroservices
