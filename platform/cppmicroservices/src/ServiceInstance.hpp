#pragma once

#include <atomic>
#include <memory>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/ServiceFactory.h"

namespace cppmicroservices::detail {

/// An object that a factory made, given back to the factory when its last user lets go of it or the service
/// is unregistered, whichever comes first. It keeps the object and the factory for as long as it is used.
class ServiceInstance {
 public:
  ServiceInstance(std::shared_ptr<ServiceFactory> factory, Bundle user, ServiceRegistrationBase registration,
                  InterfaceMapConstPtr objects);
  ~ServiceInstance();
  ServiceInstance(const ServiceInstance&) = delete;
  ServiceInstance& operator=(const ServiceInstance&) = delete;

  [[nodiscard]] const InterfaceMapConstPtr& objects() const { return _objects; }
  void release() noexcept;

 private:
  const std::shared_ptr<ServiceFactory> _factory;
  const Bundle _user;
  const ServiceRegistrationBase _registration;
  const InterfaceMapConstPtr _objects;
  std::atomic_flag _released;
};

}  // namespace cppmicroservices::detail
