#include <cppmicroservices/BundleActivator.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/PrototypeServiceFactory.h>

#include <atomic>
#include <memory>

#include "Greeting.hpp"

namespace {

using namespace cppmicroservices;

/// Numbers the greetings it makes.
class Factory : public PrototypeServiceFactory {
 public:
  InterfaceMapConstPtr GetService(const Bundle&, const ServiceRegistrationBase&) override {
    return MakeInterfaceMap<greeting::Greeting>(
        std::make_shared<greeting::FixedGreeting>("number " + std::to_string(++_made)));
  }
  void UngetService(const Bundle&, const ServiceRegistrationBase&, const InterfaceMapConstPtr&) override {}

 private:
  std::atomic<int> _made = 0;
};

class Activator : public BundleActivator {
 public:
  void Start(BundleContext context) override {
    static_cast<void>(context.RegisterService<greeting::Greeting>(ToFactory(std::make_shared<Factory>())));
  }
  void Stop(BundleContext) override {}
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
