#include "kestrel/framework/InstallPath.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace kestrel::framework {
namespace {

namespace fs = std::filesystem;

class InstallPath : public testing::Test {
 protected:
  InstallPath() { unsetenv("KESTREL_INSTALL_PATH"); }
  ~InstallPath() override {
    unsetenv("KESTREL_INSTALL_PATH");
    setInstallPath({});
  }
};

TEST_F(InstallPath, IsTheTreeThatTheLibraryLiesIn) {
  fs::create_directories(fs::path(KESTREL_TEST_BUILD_TREE) / "bin" / "osarch64");
  EXPECT_EQ(fs::path(get_install_path()), fs::canonical(KESTREL_TEST_BUILD_TREE));
}

TEST_F(InstallPath, ComesFromTheEnvironmentAndBeforeThatFromTheHost) {
  setenv("KESTREL_INSTALL_PATH", "/opt/environment/", 1);
  EXPECT_EQ(get_install_path(), u"/opt/environment");
  setInstallPath(u"/opt/host/");
  EXPECT_EQ(get_install_path(), u"/opt/host");
  setInstallPath({});
  EXPECT_EQ(get_install_path(), u"/opt/environment");
}

TEST_F(InstallPath, KeepsLettersOutsideAscii) {
  setenv("KESTREL_INSTALL_PATH", "/opt/gr\xC3\xBC\xC3\x9F/\xF0\x9F\xA6\x85", 1);
  EXPECT_EQ(get_install_path(), u"/opt/gr\u00FC\u00DF/\U0001F985");
}

struct PathCase {
  std::u16string path;
  std::u16string component;
  std::u16string joined;
};

TEST(PathForms, JoinWithOneSeparator) {
  for (const auto& [path, component, joined] :
       {PathCase{u"/opt", u"bin", u"/opt/bin"}, PathCase{u"/opt/", u"bin", u"/opt/bin"},
        PathCase{u"/opt", u"/bin", u"/opt/bin"}, PathCase{u"", u"bin", u"bin"},
        PathCase{u"/opt", u"", u"/opt"}, PathCase{u"/", u"bin", u"/bin"}}) {
    EXPECT_EQ(concatenate_pathname(path, component, true), joined);
  }
  EXPECT_EQ(concatenate_pathname(u"lib", u"64", false), u"lib64");
}

TEST(PathForms, CollapseWhatStandsForTheSameDirectory) {
  EXPECT_EQ(make_native_form(u"/opt//kestrel/./x/../", true), u"/opt/kestrel");
  EXPECT_EQ(make_native_form(u"/opt//kestrel/", false), u"/opt//kestrel/");
  EXPECT_EQ(make_native_form(u"/", true), u"/");
}

TEST(PathForms, RefuseTextThatIsNotWellFormed) {
  EXPECT_THROW(static_cast<void>(toWide("\xFF\xFE")), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(toNarrow(std::u16string(1, char16_t{0xD800}))), std::invalid_argument);
}

}  // namespace
}  // namespace kestrel::framework
