#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>

#include "FrameworkFixture.hpp"
#include "kestrel/diagnostics/RecordObserver.hpp"

namespace kestrel::framework {
namespace {

using testing::HasSubstr;

namespace fs = std::filesystem;

class InstallAndStart : public FrameworkFixture {};

/// A copy of the greeting bundle, <tree>/top/bundles/greeting.so, in a tree that goes with it.
class CopiedBundle {
 public:
  CopiedBundle() {
    fs::create_directories(folder());
    for (const auto& entry : fs::directory_iterator(toNarrow(bundleDirectory("greeting")))) {
      fs::copy_file(entry, file());
    }
    for (const auto& place : {top(), folder(), file()}) EXPECT_EQ(chmod(place.c_str(), 0755), 0);
  }
  ~CopiedBundle() { fs::remove_all(_tree); }
  CopiedBundle(const CopiedBundle&) = delete;
  CopiedBundle& operator=(const CopiedBundle&) = delete;

  [[nodiscard]] fs::path top() const { return _tree / "top"; }
  [[nodiscard]] fs::path folder() const { return top() / "bundles"; }
  [[nodiscard]] fs::path file() const { return folder() / "greeting.so"; }

 private:
  static fs::path newTree() {
    auto name = testing::TempDir() + "kestrel-XXXXXX";
    return fs::canonical(mkdtemp(name.data()));
  }
  const fs::path _tree = newTree();
};

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

TEST_F(InstallAndStart, RefusesWhatIsNoBundleBeforeAnyOfItsCodeRuns) {
  EXPECT_THAT(errorFrom("none"), HasSubstr("test_no_bundle"));
  EXPECT_EQ(std::getenv("KESTREL_TEST_NO_BUNDLE_RAN"), nullptr);
  const CopiedBundle copy;
  const auto whole = fs::file_size(copy.file());
  for (const auto size : {whole - 1, whole / 2, whole / 10, std::uintmax_t{100}, std::uintmax_t{0}}) {
    fs::resize_file(copy.file(), size);
    EXPECT_THAT([&] { (void)installAndStart(copy.folder().u16string()); },
                testing::ThrowsMessage<std::runtime_error>(HasSubstr("expected a")))
        << size << " of " << whole << " bytes";
  }
  fs::resize_file(copy.file(), whole);  // as a crash of the system leaves a file: its length without its text
  EXPECT_THROW((void)installAndStart(copy.folder().u16string()), std::runtime_error);
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

struct Access {
  std::string name;
  std::function<void(const CopiedBundle&)> set;
  std::string reason;  // none: the bundle is taken
  bool needsRoot = false;
};

auto mode(fs::path (CopiedBundle::*place)() const, mode_t bits) {
  return [=](const CopiedBundle& copy) { EXPECT_EQ(chmod((copy.*place)().c_str(), bits), 0); };
}

auto owner(fs::path (CopiedBundle::*place)() const, uid_t user, gid_t group) {
  return [=](const CopiedBundle& copy) {
    EXPECT_EQ(chown((copy.*place)().c_str(), user, group), 0);
    EXPECT_EQ(chmod((copy.*place)().c_str(), 0775), 0);
  };
}

class InstallAccess : public testing::TestWithParam<Access> {};

TEST_P(InstallAccess, DecidesWhetherABundleIsTaken) {
  if (GetParam().needsRoot && geteuid() != 0) GTEST_SKIP() << "needs root";
  const CopiedBundle copy;
  GetParam().set(copy);
  std::mutex mutex;
  std::string log;  // guarded by mutex
  const diagnostics::RecordObserver observer([&](const diagnostics::Record& record) {
    const std::lock_guard lock(mutex);
    log.append(record.text).append("\n");
  });
  EXPECT_EQ(installAndStart(copy.folder().u16string()).size(), GetParam().reason.empty() ? 1U : 0U);
  const std::lock_guard lock(mutex);
  const bool taken = GetParam().reason.empty();
  EXPECT_EQ(log.empty(), taken) << log;
  EXPECT_THAT(log, testing::AllOf(HasSubstr(taken ? "" : "passed over"), HasSubstr(GetParam().reason)));
}

INSTANTIATE_TEST_SUITE_P(
    Places, InstallAccess,
    testing::Values(Access{"Ours", [](const CopiedBundle&) {}, ""},
                    Access{"FileForAll", mode(&CopiedBundle::file, 0666), "greeting.so"},
                    Access{"FolderForAll", mode(&CopiedBundle::folder, 0777), "all users"},
                    Access{"StickyFolderForAll", mode(&CopiedBundle::folder, 01777), "all users"},
                    Access{"FolderAboveForAll", mode(&CopiedBundle::top, 0777), "top"},
                    Access{"StickyFolderAboveForAll", mode(&CopiedBundle::top, 01777), ""},
                    Access{"LinkToAFileForAll",
                           [](const CopiedBundle& copy) {
                             fs::rename(copy.file(), copy.top() / "elsewhere.so");
                             fs::create_symlink(copy.top() / "elsewhere.so", copy.file());
                             fs::permissions(copy.top() / "elsewhere.so", fs::perms(0666));
                           },
                           "elsewhere.so"},
                    Access{"OwnPrivateGroup", owner(&CopiedBundle::folder, 0, 0), "", true},
                    Access{"OtherGroup", owner(&CopiedBundle::folder, 0, 100), "group 100", true},
                    Access{"OtherOwner", owner(&CopiedBundle::file, 12345, 0), "user 12345", true},
                    Access{"OtherOwnerAbove", owner(&CopiedBundle::top, 12345, 0), "user 12345", true}),
    [](const auto& tested) { return tested.param.name; });

TEST(InstallAndStartWithoutFramework, TakesNothingFromARelativeDirectory) {
  const CopiedBundle copy;
  const auto before = fs::current_path();
  fs::current_path(copy.top());
  EXPECT_TRUE(installAndStart(u"bundles").empty());
  fs::current_path(before);
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
