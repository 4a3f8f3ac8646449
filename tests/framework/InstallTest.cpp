#include <cstdlib>
#include <filesystem>

#include "FrameworkFixture.hpp"

namespace kestrel::framework {
namespace {

using testing::HasSubstr;

class InstallAndStart : public FrameworkFixture {};

/// The message of the error that the directory causes.
std::string errorFrom(const std::string& directory) {
  try {
    return "no error, bundles: " + std::to_string(installAndStart(bundleDirectory(directory)).size());
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

TEST_F(InstallAndStart, BringsTheServicesOfABundleOnceHoweverOftenItIsCalled) {
  auto bundles = installAndStart(bundleDirectory("greeting"));
  ASSERT_EQ(bundles.size(), 1U);
  EXPECT_TRUE(installAndStart(bundleDirectory("failing/../greeting")) == bundles);
  EXPECT_EQ(context().GetServiceReferences<Greeting>().size(), 1U);
  bundles[0].Stop();
  EXPECT_EQ(findService<Greeting>(), nullptr);
  EXPECT_TRUE(installAndStart(bundleDirectory("greeting")) == bundles);
  EXPECT_EQ(findService<Greeting>()->text(), "hello from test_greeting");
}

TEST_F(InstallAndStart, NamesWhatDoesNotStartAndDropsItsServices) {
  EXPECT_THAT(errorFrom("failing"), testing::AllOf(HasSubstr("test_failing"), HasSubstr("no greeting")));
  EXPECT_THAT(errorFrom("none"), HasSubstr("test_no_bundle"));
  EXPECT_EQ(findService<Greeting>(), nullptr);
}

TEST_F(InstallAndStart, TellsAStoppedFrameworkAndAnEmptyDirectoryFromABrokenBundle) {
  EXPECT_EQ(errorFrom("missing"), "no error, bundles: 0");
  EXPECT_EQ(errorFrom(""), "no error, bundles: 0");
  stop();
  EXPECT_EQ(errorFrom("greeting"), invalidContext);
}

TEST(InstallAndStartWithoutFramework, CountsTheBundlesAndInstallsNone) {
  const auto bundles = installAndStart(bundleDirectory("greeting"));
  ASSERT_EQ(bundles.size(), 1U);
  EXPECT_FALSE(bundles[0]);
}

TEST(InstallPath, ComesFromTheHostThenTheEnvironmentThenTheTreeThatTheLibraryLiesIn) {
  setInstallPath(u"/opt/host/");
  setenv("KESTREL_INSTALL_PATH", "/opt/gr\xC3\xBC\xC3\x9F/\xF0\x9F\xA6\x85/", 1);
  EXPECT_EQ(get_install_path(), u"/opt/host");
  setInstallPath({});
  EXPECT_EQ(get_install_path(), u"/opt/gr\u00FC\u00DF/\U0001F985");
  unsetenv("KESTREL_INSTALL_PATH");
  const std::filesystem::path tree = KESTREL_TEST_BUILD_TREE;
  create_directories(tree / "bin" / "osarch64");
  EXPECT_EQ(get_install_path(), canonical(tree).u16string());
}

TEST(InstallPath, IsPutTogetherWithOneSeparatorAndCollapsed) {
  EXPECT_EQ(concatenate_pathname(u"/opt", u"bin", true), u"/opt/bin");
  EXPECT_EQ(concatenate_pathname(u"/opt/", u"bin", true), u"/opt/bin");
  EXPECT_EQ(concatenate_pathname(u"/opt", u"/bin", true), u"/opt/bin");
  EXPECT_EQ(concatenate_pathname(u"", u"bin", true), u"bin");
  EXPECT_EQ(concatenate_pathname(u"/opt", u"", true), u"/opt");
  EXPECT_EQ(make_native_form(u"/opt//kestrel/./x/../", true), u"/opt/kestrel");
}

}  // namespace
}  // namespace kestrel::framework
