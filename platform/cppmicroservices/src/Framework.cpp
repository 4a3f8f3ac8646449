#include "cppmicroservices/Framework.h"

#include "FrameworkCore.hpp"
#include "cppmicroservices/FrameworkFactory.h"

namespace cppmicroservices {

Framework::Framework(std::shared_ptr<detail::FrameworkCore> core)
    : Bundle(core->systemBundle()), _stopOnRelease(nullptr, [core](void*) { core->stop(); }) {}

void Framework::Init() {
  _core->init();
}

FrameworkEvent Framework::WaitForStop(const std::chrono::milliseconds& timeout) {
  return FrameworkEvent(_core->waitForStop(timeout) ? FrameworkEvent::FRAMEWORK_STOPPED
                                                    : FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT);
}

Framework FrameworkFactory::NewFramework() {
  return Framework(std::make_shared<detail::FrameworkCore>());
}

}  // namespace cppmicroservices
