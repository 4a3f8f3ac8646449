#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "FrameworkFixture.hpp"
#include "kestrel/diagnostics/RecordObserver.hpp"

namespace kestrel::framework {

using testing::HasSubstr;
namespace fs = std::filesystem;

struct InstallAndStart : FrameworkFixture {};

/// A copy of the greeting bundle, <tree>/top/elsewhere.so, and a link to it, <tree>/top/bundles/greeting.so,
/// in a tree that goes with it.
struct CopiedBundle {
  CopiedBundle() {
    fs::create_directories(folder);
    copy_file(fs::directory_iterator(toNarrow(bundleDirectory("greeting")))->path(), top / "elsewhere.so");
    create_symlink(top / "elsewhere.so", file);
    for (const auto& place : {top, folder, file}) EXPECT_EQ(chmod(place.c_str(), 0755), 0);
  }
  ~CopiedBundle() { fs::remove_all(top.parent_path()); }
  CopiedBundle(const CopiedBundle&) = delete;

  std::string name = testing::TempDir() + "kestrel-XXXXXX";
  const fs::path top = fs::canonical(mkdtemp(name.data())) / "top";
  const fs::path folder = top / "bundles", file = folder / "greeting.so";
};

/// The message of the error that the directory causes.
std::string errorFrom(const std::u16string& directory) {
  try {
    return "no error, bundles: " + std::to_string(installAndStart(directory).size());
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
  EXPECT_NE(findService<Greeting>(), nullptr);
}

TEST_F(InstallAndStart, NamesWhatDoesNotStartAndDropsItsServicesButMissesNoDirectory) {
  EXPECT_THAT(errorFrom(bundleDirectory("failing")),
              testing::AllOf(HasSubstr("test_failing"), HasSubstr("no greeting")));
  EXPECT_EQ(findService<Greeting>(), nullptr);
  EXPECT_EQ(errorFrom(bundleDirectory("missing")), "no error, bundles: 0");
}

TEST_F(InstallAndStart, RefusesWhatIsNoBundleBeforeAnyOfItsCodeRuns) {
  EXPECT_THAT(errorFrom(bundleDirectory("none")), HasSubstr("test_no_bundle"));
  EXPECT_EQ(std::getenv("KESTREL_TEST_NO_BUNDLE_RAN"), nullptr);
  const CopiedBundle copy;
  const auto whole = fs::file_size(copy.file);
  for (const auto size : {whole - 1, whole / 2, whole / 10, std::uintmax_t{100}, std::uintmax_t{0}}) {
    fs::resize_file(copy.file, size);
    EXPECT_THAT(errorFrom(copy.folder.u16string()), HasSubstr("expected a")) << size << " of " << whole;
  }
  fs::resize_file(copy.file, whole);  // as a crash of the system leaves a file: its length without its text
  EXPECT_THAT(errorFrom(copy.folder.u16string()), HasSubstr("Cannot install"));
}

struct Access {
  const fs::path CopiedBundle::*place;
  mode_t mode;
  std::string reason;                              // none: the bundle is taken
  std::optional<std::pair<uid_t, gid_t>> owner{};  // needs root to be set
};

const Access accesses[] = {{&CopiedBundle::folder, 0755, ""},
                           {&CopiedBundle::folder, 01777, "all users"},
                           {&CopiedBundle::top, 0777, "top"},
                           {&CopiedBundle::top, 01777, ""},
                           {&CopiedBundle::file, 0666, "elsewhere.so"},
                           {&CopiedBundle::folder, 0775, "", {{0, 0}}},
                           {&CopiedBundle::folder, 0775, "group 100", {{0, 100}}},
                           {&CopiedBundle::top, 0755, "user 12345", {{12345, 0}}}};

TEST(InstallAndStartWithoutFramework, CountsTheBundlesThatOnlyTrustedUsersMayReplace) {
  for (const auto& [place, mode, reason, owner] : accesses) {
    if (owner && geteuid() != 0) continue;
    const CopiedBundle copy;
    const auto path = copy.*place;
    EXPECT_EQ(owner ? chown(path.c_str(), owner->first, owner->second) : 0, 0);
    EXPECT_EQ(chmod(path.c_str(), mode), 0);
    std::string log;
    const diagnostics::RecordObserver observer([&](const auto& record) { log.append(record.text); });
    const auto bundles = installAndStart(copy.folder.u16string());
    EXPECT_EQ(bundles.size(), reason.empty() ? 1U : 0U) << path << ' ' << mode << ' ' << reason;
    for (const auto& bundle : bundles) EXPECT_FALSE(bundle);
    EXPECT_EQ(log.empty(), reason.empty()) << log;
    EXPECT_THAT(log, HasSubstr(reason));
    EXPECT_TRUE(installAndStart(fs::relative(copy.folder).u16string()).empty())
        << "it leads wherever the process stands";
  }
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

}  // namespace kestrel::framework
