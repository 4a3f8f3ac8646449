#pragma once

#include "cppmicroservices/ServiceFactory.h"

namespace cppmicroservices {

/// A factory that makes an object of its own for every ServiceObjects::GetService().
struct CPPMICROSERVICES_EXPORT PrototypeServiceFactory : ServiceFactory {};

}  // namespace cppmicroservices
