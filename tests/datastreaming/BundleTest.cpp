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

TEST(DatastreamingBundle, GivesEachLookUpAServiceOfItsOwn) {
  auto framework = cppmicroservices::FrameworkFactory().NewFramework();
  framework.Start();
  auto context = framework.GetBundleContext();
  auto bundles = context.InstallBundles(KESTREL_BUNDLE_FILE);
  ASSERT_EQ(bundles.size(), 1U);
  EXPECT_EQ(bundles[0].GetSymbolicName(), "kestrel_datastreaming");
  bundles[0].Start();
  const auto references = context.GetServiceReferences<StreamsFactory>("");
  ASSERT_EQ(references.size(), 1U);
  auto objects = context.GetServiceObjects(references[0]);
  const auto one = objects.GetService();
  const auto two = objects.GetService();
  ASSERT_TRUE(one && two);
  EXPECT_NE(one, two);
  EXPECT_EQ(one->getStream("s", {})->id(), "s");

  bundles[0].Stop();
  EXPECT_TRUE(context.GetServiceReferences<StreamsFactory>("").empty());
  EXPECT_EQ(two->getStream("t", {})->id(), "t") << "what is held goes on without the registration";
  framework.Stop();
  framework.WaitForStop(std::chrono::milliseconds(5000));
}

}  // namespace
}  // namespace kestrel::datastreaming
