#pragma once

#ifndef US_BUNDLE_NAME
#error "US_BUNDLE_NAME is not defined: build the bundle with kestrel_add_bundle()"
#endif

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/detail/Export.h"

namespace cppmicroservices {

/// What a bundle does when it starts and stops. Called on the thread that starts or stops the bundle.
struct BundleActivator {
  virtual ~BundleActivator() = default;

  /// An exception means that the bundle has not started.
  virtual void Start(BundleContext context) = 0;
  virtual void Stop(BundleContext context) = 0;
};

}  // namespace cppmicroservices

/// Makes the class the bundle's activator. Once per bundle, in the global namespace.
#define CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(activatorType)                                              \
  extern "C" CPPMICROSERVICES_EXPORT cppmicroservices::BundleActivator* cppmicroservices_create_activator(); \
  extern "C" cppmicroservices::BundleActivator* cppmicroservices_create_activator() {                        \
    return new activatorType();                                                                              \
  }                                                                                                          \
  extern "C" CPPMICROSERVICES_EXPORT void cppmicroservices_destroy_activator(                                \
      cppmicroservices::BundleActivator* activator);                                                         \
  extern "C" void cppmicroservices_destroy_activator(cppmicroservices::BundleActivator* activator) {         \
    delete activator;                                                                                        \
  }
