#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <cppmicroservices/ServiceObjects.h>
#include <gtest/gtest.h>

#include <kestrel/datastreaming/StreamsFactory.hpp>

namespace kestrel::datastreaming {
namespace {

TEST(DatastreamingBundle, GivesEachLookUpAServiceOfItsOwnThatOutlivesTheBundle) {
  auto framework = cppmicroservices::FrameworkFactory().NewFramework();
  framework.Start();
  auto context = framework.GetBundleContext();
  auto bundle = context.InstallBundles(KESTREL_BUNDLE_FILE).at(0);
  bundle.Start();
  auto objects = context.GetServiceObjects(context.GetServiceReference<StreamsFactory>());
  const auto one = objects.GetService(), two = objects.GetService();
  ASSERT_NE(one, two);
  bundle.Stop();
  EXPECT_TRUE(context.GetServiceReferences<StreamsFactory>("").empty());
  EXPECT_EQ(two->getStream("t", {})->id(), "t");
  framework.Stop();
  framework.WaitForStop(std::chrono::milliseconds(5000));
}

}  // namespace
}  // namespace kestrel::datastreaming
