#pragma once

#include <cppmicroservices/Constants.h>
#include <gmock/gmock.h>

#include "bundles/Greeting.hpp"
#include "kestrel/framework/InstallAndStart.hpp"
#include "kestrel/framework/InstallPath.hpp"
#include "kestrel/framework/ServiceLookup.hpp"
#include "kestrel/host/Host.hpp"

namespace kestrel::framework {

inline std::u16string bundleDirectory(const std::string& name) {
  return toWide(std::string(KESTREL_TEST_BUNDLES) + "/" + name);
}

/// Runs a framework that the process knows for as long as the test lasts.
struct FrameworkFixture : testing::Test {
  [[nodiscard]] static cppmicroservices::BundleContext context() {
    return getFramework()->GetBundleContext();
  }

  static auto greet(const std::string& text, int ranking = 0) {
    return context().RegisterService<Greeting>(
        std::make_shared<Greeting>(text),
        {{cppmicroservices::Constants::SERVICE_RANKING, cppmicroservices::Any(ranking)}});
  }

  const host::Host host;
};

}  // namespace kestrel::framework
