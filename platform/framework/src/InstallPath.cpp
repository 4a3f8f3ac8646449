#include "kestrel/framework/InstallPath.hpp"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace kestrel::framework {

namespace {

namespace fs = std::filesystem;

struct Override {
  std::mutex mutex;
  std::u16string path;  // guarded by mutex
};

Override& hostOverride() {
  static auto* const instance = new Override;  // never freed: threads may look it up while the process ends
  return *instance;
}

fs::path withoutTrailingSeparator(const fs::path& path) {
  return path.has_relative_path() && !path.has_filename() ? path.parent_path() : path;
}

fs::path locationOfThisLibrary() {
  static const char anchor = 0;
  Dl_info info{};
  std::error_code error;
  if (dladdr(&anchor, &info) == 0 || info.dli_fname == nullptr) {
    return {};
  }
  return fs::canonical(info.dli_fname, error);
}

/// The library lies at different depths in the trees it can be part of, so the directory is searched upwards.
fs::path searchUpwards() {
  std::error_code error;
  auto directory = locationOfThisLibrary();
  while (directory.has_relative_path()) {
    directory = directory.parent_path();
    if (fs::is_directory(directory / "bin" / "osarch64", error)) {
      return directory;
    }
  }
  return {};
}

template <class Convert>
auto converted(Convert convert, const char* expected) {
  try {
    return convert();
  } catch (const std::exception&) {
    throw std::invalid_argument(std::string("Expected well-formed ") + expected +
                                " text, got something else");
  }
}

}  // namespace

std::u16string get_install_path() {
  {
    auto& override = hostOverride();
    const std::lock_guard lock(override.mutex);
    if (!override.path.empty()) {
      return override.path;
    }
  }
  if (const char* configured = secure_getenv("KESTREL_INSTALL_PATH");
      configured != nullptr && *configured != '\0') {
    return toWide(withoutTrailingSeparator(configured).native());
  }
  return toWide(searchUpwards().native());
}

void setInstallPath(std::u16string path) {
  if (!path.empty()) {
    path = toWide(withoutTrailingSeparator(toNarrow(path)).native());
  }
  auto& override = hostOverride();
  const std::lock_guard lock(override.mutex);
  override.path = std::move(path);
}

std::u16string make_native_form(const std::u16string& path, bool collapse) {
  fs::path native = toNarrow(path);
  native.make_preferred();
  if (collapse) {
    native = withoutTrailingSeparator(native.lexically_normal());
  }
  return toWide(native.native());
}

std::u16string concatenate_pathname(const std::u16string& path, const std::u16string& component,
                                    bool separate) {
  constexpr char16_t separator = fs::path::preferred_separator;
  if (path.empty() || component.empty()) {
    return path + component;
  }
  const bool missing = path.back() != separator && component.front() != separator;
  return separate && missing ? path + separator + component : path + component;
}

std::string toNarrow(std::u16string_view text) {
  return converted([text] { return fs::path(text.begin(), text.end()).native(); }, "UTF-16");
}

std::u16string toWide(std::string_view text) {
  return converted([text] { return fs::path(text).u16string(); }, "UTF-8");
}

}  // namespace kestrel::framework
