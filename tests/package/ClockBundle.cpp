#include <cppmicroservices/BundleActivator.h>

#include "Clock.hpp"

namespace {

class StoppedClock : public Clock {
 public:
  [[nodiscard]] int hour() const override { return 12; }
};

class Activator : public cppmicroservices::BundleActivator {
 public:
  void Start(cppmicroservices::BundleContext context) override {
    (void)context.RegisterService<Clock>(std::make_shared<StoppedClock>());
  }
  void Stop(cppmicroservices::BundleContext) override {}
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
