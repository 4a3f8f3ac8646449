#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/BundleActivator.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/GetBundleContext.h>

#include <memory>

#include "Greeting.hpp"

namespace {

/// Tells whether the bundle's code finds the context it runs in.
class SelfAwareGreeting : public greeting::Greeting {
 public:
  [[nodiscard]] std::string text() const override {
    const auto context = cppmicroservices::GetBundleContext();
    return context ? "hello from " + context.GetBundle().GetSymbolicName() : "hello from the past";
  }
};

class Activator : public cppmicroservices::BundleActivator {
 public:
  void Start(cppmicroservices::BundleContext context) override {
    static_cast<void>(context.RegisterService<greeting::Greeting>(std::make_shared<SelfAwareGreeting>()));
  }
  void Stop(cppmicroservices::BundleContext) override {}
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
