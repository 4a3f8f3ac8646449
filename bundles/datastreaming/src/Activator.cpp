#include <cppmicroservices/BundleActivator.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/PrototypeServiceFactory.h>
#include <cppmicroservices/ServiceInterface.h>
#include <cppmicroservices/ServiceRegistration.h>

#include <memory>

#include "src/StreamsFactoryImpl.hpp"

namespace kestrel::streams {

namespace {

/// Gives each one who looks the service up an instance of its own: two of them may have two endpoints.
class FactoryPerLookup final : public cppmicroservices::PrototypeServiceFactory {
 public:
  cppmicroservices::InterfaceMapConstPtr GetService(
      const cppmicroservices::Bundle&, const cppmicroservices::ServiceRegistrationBase&) override {
    return cppmicroservices::MakeInterfaceMap<datastreaming::StreamsFactory>(
        std::make_shared<StreamsFactoryImpl>());
  }

  // The instance lives as long as somebody holds it, so there is nothing to take back.
  void UngetService(const cppmicroservices::Bundle&, const cppmicroservices::ServiceRegistrationBase&,
                    const cppmicroservices::InterfaceMapConstPtr&) override {}
};

}  // namespace

/// Registers the data-streaming service while the bundle is started.
class Activator final : public cppmicroservices::BundleActivator {
 public:
  void Start(cppmicroservices::BundleContext context) override {
    _registration = context.RegisterService<datastreaming::StreamsFactory>(
        cppmicroservices::ToFactory(std::make_shared<FactoryPerLookup>()));
  }

  void Stop(cppmicroservices::BundleContext) override { _registration.Unregister(); }

 private:
  cppmicroservices::ServiceRegistration<datastreaming::StreamsFactory> _registration;
};

}  // namespace kestrel::streams

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(kestrel::streams::Activator)
