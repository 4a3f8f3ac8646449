#pragma once

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceRegistration.h"

namespace cppmicroservices {

class Bundle;

/// Makes the service object that a bundle gets, one per bundle. Called on the threads of those who look the
/// service up or let go of it, under no lock of the framework.
class CPPMICROSERVICES_EXPORT ServiceFactory {
 public:
  virtual ~ServiceFactory() = default;

  /// Makes an object with every interface of the registration. A null pointer or an exception means that
  /// the caller gets no service.
  virtual InterfaceMapConstPtr GetService(const Bundle& bundle,
                                          const ServiceRegistrationBase& registration) = 0;

  /// The bundle has let go of the object, or the service is unregistered: then others may still hold it.
  virtual void UngetService(const Bundle& bundle, const ServiceRegistrationBase& registration,
                            const InterfaceMapConstPtr& service) = 0;
};

}  // namespace cppmicroservices
