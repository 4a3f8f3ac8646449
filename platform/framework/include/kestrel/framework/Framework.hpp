#pragma once

#include <cppmicroservices/Framework.h>

#include <memory>

#include "kestrel/export/Export.hpp"

namespace kestrel::framework {

/// The service framework that the host runs; an empty pointer if it runs none. Any thread.
[[nodiscard]] KESTREL_EXPORT std::shared_ptr<cppmicroservices::Framework> getFramework();

/// For hosts: makes the framework known to the process, an empty pointer before it stops. Those who hold it
/// already keep it. Any thread.
KESTREL_EXPORT void setFramework(std::shared_ptr<cppmicroservices::Framework> framework);

}  // namespace kestrel::framework
