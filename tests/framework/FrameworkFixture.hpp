#pragma once

#include <cppmicroservices/Constants.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <gmock/gmock.h>

#include "bundles/Greeting.hpp"
#include "kestrel/framework/InstallAndStart.hpp"
#include "kestrel/framework/InstallPath.hpp"
#include "kestrel/framework/ServiceLookup.hpp"
#include "kestrel/host/Host.hpp"

namespace kestrel::framework {

constexpr auto invalidContext = "The bundle context is no longer valid";

inline std::u16string bundleDirectory(const std::string& name) {
  return toWide(std::string(KESTREL_TEST_BUNDLES) + "/" + name);
}

/// Runs a framework that the process knows for as long as the test lasts.
class FrameworkFixture : public testing::Test {
 protected:
  [[nodiscard]] static cppmicroservices::BundleContext context() {
    return getFramework()->GetBundleContext();
  }

  static auto greet(const std::string& text, const cppmicroservices::ServiceProperties& properties = {}) {
    return context().RegisterService<Greeting>(std::make_shared<Greeting>(text), properties);
  }

  static auto greet(const std::string& text, int ranking) {
    return greet(text, {{cppmicroservices::Constants::SERVICE_RANKING, cppmicroservices::Any(ranking)}});
  }

  /// Stops the framework, which the process goes on to know.
  static void stop() {
    getFramework()->Stop();
    EXPECT_EQ(getFramework()->WaitForStop(std::chrono::seconds(20)).GetType(),
              cppmicroservices::FrameworkEvent::FRAMEWORK_STOPPED);
  }

 private:
  host::Host _host;
};

}  // namespace kestrel::framework
