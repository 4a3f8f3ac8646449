#include "kestrel/framework/InstallAndStart.hpp"

#include <gmock/gmock.h>

#include <filesystem>

#include "FrameworkFixture.hpp"
#include "kestrel/framework/ServiceLookup.hpp"

namespace kestrel::framework {
namespace {

using cppmicroservices::Bundle;
using greeting::Greeting;
using testing::HasSubstr;

class InstallAndStart : public FrameworkFixture {};

/// The message of the error that the directory causes.
std::string errorFrom(const std::string& directory) {
  try {
    static_cast<void>(installAndStart(bundleDirectory(directory)));
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

TEST_F(InstallAndStart, BringsTheServicesOfABundle) {
  const auto bundles = installAndStart(bundleDirectory("greeting"));
  ASSERT_EQ(bundles.size(), 1U);
  EXPECT_EQ(bundles[0].GetSymbolicName(), "test_greeting");
  EXPECT_EQ(bundles[0].GetState(), Bundle::STATE_ACTIVE);
  EXPECT_EQ(findService<Greeting>()->text(), "hello from test_greeting");
}

TEST_F(InstallAndStart, GivesTheSameBundleAgain) {
  const auto first = installAndStart(bundleDirectory("greeting"));
  const auto second = installAndStart(bundleDirectory("failing/../greeting"));
  EXPECT_TRUE(first == second);
  EXPECT_EQ(context().GetServiceReferences<Greeting>().size(), 1U);
}

TEST_F(InstallAndStart, StartsABundleAgainThatWasStopped) {
  auto bundles = installAndStart(bundleDirectory("greeting"));
  bundles.at(0).Stop();
  EXPECT_EQ(findService<Greeting>(), nullptr);
  static_cast<void>(installAndStart(bundleDirectory("greeting")));
  EXPECT_EQ(findService<Greeting>()->text(), "hello from test_greeting");
}

TEST_F(InstallAndStart, LeavesObjectsOfAStoppedBundleUsable) {
  auto bundles = installAndStart(bundleDirectory("greeting"));
  const auto greeting = findService<Greeting>();
  bundles.at(0).Stop();
  bundles.clear();
  stop();
  EXPECT_EQ(greeting->text(), "hello from the past");
}

TEST_F(InstallAndStart, NamesTheBundleThatDoesNotStartAndDropsItsServices) {
  EXPECT_THAT(errorFrom("failing"),
              testing::AllOf(HasSubstr("test_failing"), HasSubstr("no greeting today")));
  EXPECT_EQ(findService<Greeting>(), nullptr);
}

TEST_F(InstallAndStart, NamesTheFileThatIsNoBundle) {
  EXPECT_THAT(errorFrom("none"), HasSubstr("test_no_bundle"));
}

TEST_F(InstallAndStart, FindsNothingWhereThereIsNoDirectoryOrNoBundleInIt) {
  EXPECT_TRUE(installAndStart(bundleDirectory("missing")).empty());
  EXPECT_TRUE(installAndStart(bundleDirectory("")).empty());
}

TEST_F(InstallAndStart, TellsAFrameworkThatHasStoppedFromABrokenBundle) {
  stop();
  EXPECT_EQ(errorFrom("greeting"), "The bundle context is no longer valid");
}

TEST(InstallAndStartWithoutFramework, CountsTheBundlesAndInstallsNone) {
  const auto bundles = installAndStart(bundleDirectory("greeting"));
  ASSERT_EQ(bundles.size(), 1U);
  EXPECT_FALSE(bundles[0]);
  EXPECT_TRUE(installAndStart(bundleDirectory("missing")).empty());
}

}  // namespace
}  // namespace kestrel::framework
