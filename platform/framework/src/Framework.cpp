#include "kestrel/framework/Framework.hpp"

#include <mutex>
#include <utility>

namespace kestrel::framework {

namespace {

struct Current {
  std::mutex mutex;
  std::shared_ptr<cppmicroservices::Framework> framework;  // guarded by mutex
};

// Never destroyed: threads may still ask for the framework while the process exits, and a host that has not
// cleared it does not want it stopped from an exit handler.
Current& current() {
  static auto* const instance = new Current;
  return *instance;
}

}  // namespace

std::shared_ptr<cppmicroservices::Framework> getFramework() {
  const std::lock_guard lock(current().mutex);
  return current().framework;
}

void setFramework(std::shared_ptr<cppmicroservices::Framework> framework) {
  const std::lock_guard lock(current().mutex);
  // The one before leaves through the parameter, which is destroyed after the lock is released.
  current().framework.swap(framework);
}

}  // namespace kestrel::framework
