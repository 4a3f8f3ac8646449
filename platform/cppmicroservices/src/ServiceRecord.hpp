#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceProperties.h"

namespace cppmicroservices::detail {

class ServiceInstance;

/// The property of that name in any case, or a null pointer.
[[nodiscard]] const Any* findProperty(const ServiceProperties& properties, const std::string& name);

/// One registered service. Safe for several threads at once; factories are called under no lock.
class ServiceRecord : public std::enable_shared_from_this<ServiceRecord> {
 public:
  /// Throws ServiceException for a service without interfaces.
  ServiceRecord(long id, const Bundle& owner, InterfaceMapConstPtr service,
                const ServiceProperties& properties);
  ~ServiceRecord();
  ServiceRecord(const ServiceRecord&) = delete;
  ServiceRecord& operator=(const ServiceRecord&) = delete;

  [[nodiscard]] long id() const { return _id; }
  [[nodiscard]] const std::vector<std::string>& interfaces() const { return _interfaces; }
  [[nodiscard]] bool isPrototype() const;
  [[nodiscard]] bool isRegistered() const;
  [[nodiscard]] int ranking() const;
  /// The bundle that registered the service; an empty one once its framework is gone.
  [[nodiscard]] Bundle owner() const;

  [[nodiscard]] std::shared_ptr<const ServiceProperties> properties() const;
  void setProperties(const ServiceProperties& properties);

  /// The bundle's own object, made at the first call where the service has a factory. Null if there is none.
  [[nodiscard]] std::shared_ptr<void> bundleObject(const std::string& interfaceId, const Bundle& user);
  /// A new object of a service of prototype scope. Null if the factory makes none.
  [[nodiscard]] std::shared_ptr<void> newObject(const std::string& interfaceId, const Bundle& user);

  /// Takes the service away and tells the factory to let go of its objects. Whether it was still there.
  bool retire();

 private:
  using InstancePointer = std::shared_ptr<ServiceInstance>;

  [[nodiscard]] InterfaceMapConstPtr service() const;
  [[nodiscard]] InstancePointer makeInstance(const InterfaceMapConstPtr& service, const Bundle& user);
  /// Whether the service was still registered, so that retire() will know of the instance.
  bool remember(const InstancePointer& instance);
  [[nodiscard]] InstancePointer instanceOf(long bundle) const;
  [[nodiscard]] InstancePointer firstInstance(long bundle, const InstancePointer& made);

  const long _id;
  const std::weak_ptr<FrameworkCore> _core;
  const std::weak_ptr<BundleData> _owner;
  const std::vector<std::string> _interfaces;
  const std::string _scope;

  mutable std::mutex _mutex;
  // Guarded by _mutex:
  InterfaceMapConstPtr _service;  // null once the service is unregistered
  std::shared_ptr<const ServiceProperties> _properties;
  std::map<long, std::weak_ptr<ServiceInstance>> _bundleInstances;  // by number of the using bundle
  std::vector<std::weak_ptr<ServiceInstance>> _instances;           // all that may still be in use
};

}  // namespace cppmicroservices::detail
