#pragma once

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "bundles/Greeting.hpp"
#include "kestrel/framework/Framework.hpp"
#include "kestrel/framework/InstallPath.hpp"

namespace kestrel::framework {

inline std::u16string bundleDirectory(const std::string& name) {
  return toWide(std::string(KESTREL_TEST_BUNDLES) + "/" + name);
}

/// Runs a framework that the process knows for as long as the test lasts.
class FrameworkFixture : public testing::Test {
 protected:
  FrameworkFixture() {
    _framework->Start();
    setFramework(_framework);
  }
  ~FrameworkFixture() override {
    setFramework(nullptr);
    stop();
  }

  void stop() {
    _framework->Stop();
    EXPECT_EQ(_framework->WaitForStop(std::chrono::seconds(20)).GetType(),
              cppmicroservices::FrameworkEvent::FRAMEWORK_STOPPED);
  }

  [[nodiscard]] cppmicroservices::BundleContext context() const { return _framework->GetBundleContext(); }

  auto greet(const std::string& text, const cppmicroservices::ServiceProperties& properties = {}) const {
    return context().RegisterService<greeting::Greeting>(std::make_shared<greeting::FixedGreeting>(text),
                                                         properties);
  }

 private:
  std::shared_ptr<cppmicroservices::Framework> _framework =
      std::make_shared<cppmicroservices::Framework>(cppmicroservices::FrameworkFactory().NewFramework());
};

}  // namespace kestrel::framework
