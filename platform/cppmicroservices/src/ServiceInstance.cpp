#include "ServiceInstance.hpp"

namespace cppmicroservices::detail {

ServiceInstance::ServiceInstance(std::shared_ptr<ServiceFactory> factory, Bundle user,
                                 ServiceRegistrationBase registration, InterfaceMapConstPtr objects)
    : _factory(std::move(factory)),
      _user(std::move(user)),
      _registration(std::move(registration)),
      _objects(std::move(objects)) {}

ServiceInstance::~ServiceInstance() {
  release();
}

void ServiceInstance::release() noexcept {
  if (_released.test_and_set()) {
    return;
  }
  try {
    _factory->UngetService(_user, _registration, _objects);
  } catch (...) {  // NOLINT(bugprone-empty-catch): runs in a destructor, and nobody could act on it
  }
}

}  // namespace cppmicroservices::detail
