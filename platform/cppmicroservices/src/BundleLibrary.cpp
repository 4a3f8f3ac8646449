#include "BundleLibrary.hpp"

#include <dlfcn.h>

#include <stdexcept>

#include "cppmicroservices/BundleActivator.h"

namespace cppmicroservices::detail {

namespace {

template <class Function>
Function* symbol(void* handle, const char* name) {
  return reinterpret_cast<Function*>(dlsym(handle, name));
}

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
  throw std::runtime_error("Failed to install the bundle " + path + ": " + reason);
}

}  // namespace

BundleLibrary::BundleLibrary(const std::string& path) : _handle(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (_handle == nullptr) {
    const char* reason = dlerror();  // NOLINT(concurrency-mt-unsafe): of this thread, in the GNU C library
    fail(path, reason == nullptr ? "unknown reason" : reason);
  }
  auto* name = symbol<const char*()>(_handle, "cppmicroservices_bundle_symbolic_name");
  if (name == nullptr) {
    dlclose(_handle);
    fail(path, "it is not a bundle of this service framework");
  }
  _symbolicName = name();
  dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD | RTLD_NODELETE);
}

BundleLibrary::ActivatorPointer BundleLibrary::createActivator() const {
  auto* create = symbol<BundleActivator*()>(_handle, "cppmicroservices_create_activator");
  auto* destroy = symbol<void(BundleActivator*)>(_handle, "cppmicroservices_destroy_activator");
  if (create == nullptr || destroy == nullptr) {
    return {nullptr, [](BundleActivator*) {}};
  }
  return {create(), destroy};
}

void BundleLibrary::setContext(const BundleContext& context) const {
  symbol<void(const BundleContext*)>(_handle, "cppmicroservices_set_bundle_context")(&context);
}

}  // namespace cppmicroservices::detail
