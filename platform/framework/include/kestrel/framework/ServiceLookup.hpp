#pragma once

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceObjects.h>

#include <memory>
#include <stdexcept>

#include "kestrel/framework/Framework.hpp"

namespace kestrel::framework {

/// The preferred service of the host's framework that matches the filter; an empty pointer if there is no
/// framework or no such service. A service of prototype scope gives each call an object of its own. The
/// object stays usable for as long as the pointer is kept, also after the service was unregistered and the
/// framework stopped: the pointer owns it and its code is never unloaded. Its factory may then have been told
/// to let go of it, so factories must not tear down there what their objects still need. Throws
/// std::runtime_error "The bundle context is no longer valid" while the framework is known but does not run.
/// Any thread.
template <class Service>
[[nodiscard]] std::shared_ptr<Service> findService(const cppmicroservices::LDAPFilter& filter = {}) {
  const auto framework = getFramework();
  if (!framework) {
    return nullptr;
  }
  auto context = framework->GetBundleContext();
  const auto references = context.GetServiceReferences<Service>(filter.ToString());
  if (references.empty()) {
    return nullptr;
  }
  try {
    return context.GetServiceObjects(references.front()).GetService();
  } catch (const std::invalid_argument&) {  // unregistered since the references were listed
    return nullptr;
  }
}

}  // namespace kestrel::framework
