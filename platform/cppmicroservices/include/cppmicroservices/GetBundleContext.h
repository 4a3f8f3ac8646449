#pragma once

#ifndef US_BUNDLE_NAME
#error "US_BUNDLE_NAME is not defined: build the bundle with kestrel_add_bundle()"
#endif

#include "cppmicroservices/BundleContext.h"

/// Defined in every bundle, next to its symbolic name, and visible in that bundle only.
extern "C" __attribute__((visibility("hidden"))) void cppmicroservices_get_bundle_context(
    cppmicroservices::BundleContext* context);

namespace cppmicroservices {

/// The context of the bundle this is compiled into; an invalid one while it does not run.
inline BundleContext GetBundleContext() {
  BundleContext context;
  cppmicroservices_get_bundle_context(&context);
  return context;
}

}  // namespace cppmicroservices
