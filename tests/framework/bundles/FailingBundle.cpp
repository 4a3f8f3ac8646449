#include <cppmicroservices/BundleActivator.h>
#include <cppmicroservices/BundleContext.h>

#include <memory>
#include <stdexcept>

#include "Greeting.hpp"

namespace {

class Activator : public cppmicroservices::BundleActivator {
 public:
  void Start(cppmicroservices::BundleContext context) override {
    static_cast<void>(context.RegisterService<greeting::Greeting>(
        std::make_shared<greeting::FixedGreeting>("left behind")));
    throw std::runtime_error("no greeting today");
  }
  void Stop(cppmicroservices::BundleContext) override {}
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
