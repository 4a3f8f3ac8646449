#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/BundleActivator.h>
#include <cppmicroservices/GetBundleContext.h>

#include <stdexcept>

#include "Greeting.hpp"

namespace {

/// Tells whether the bundle's code finds the context it runs in.
class SelfAwareGreeting : public Greeting {
 public:
  [[nodiscard]] std::string text() const override {
    const auto context = cppmicroservices::GetBundleContext();
    return context ? "hello from " + context.GetBundle().GetSymbolicName() : "hello from the past";
  }
};

/// Greets in one of the two bundles made of it, and fails after its registration in the other.
class Activator : public cppmicroservices::BundleActivator {
 public:
  void Start(cppmicroservices::BundleContext context) override {
    (void)context.RegisterService<Greeting>(std::make_shared<SelfAwareGreeting>());
    if (context.GetBundle().GetSymbolicName() == "test_failing") throw std::runtime_error("no greeting");
  }
  void Stop(cppmicroservices::BundleContext) override {}
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
