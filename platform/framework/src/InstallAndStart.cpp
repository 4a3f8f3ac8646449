#include "kestrel/framework/InstallAndStart.hpp"

#include <cppmicroservices/BundleContext.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <stdexcept>

#include "BundleFile.hpp"
#include "Trust.hpp"
#include "kestrel/diagnostics/Logger.hpp"
#include "kestrel/framework/Framework.hpp"
#include "kestrel/framework/InstallPath.hpp"

namespace kestrel::framework {

namespace {

namespace fs = std::filesystem;

const diagnostics::Logger& logger() {
  static const auto* const instance = new diagnostics::Logger("kestrel::framework");
  return *instance;
}

bool isTrusted(const fs::path& canonicalPath) {
  const auto reason = whyUntrusted(canonicalPath);
  if (!reason.empty()) {
    logger().log(diagnostics::Severity::error, "installAndStart: passed over ", canonicalPath.native(), ": ",
                 reason);
  }
  return reason.empty();
}

/// Whether bundles may be taken from the directory; logs why not, save that there is none.
bool isUsable(const fs::path& directory) {
  // A relative path leads wherever the process happens to stand, which is no place to take code from.
  if (!directory.is_absolute()) {
    logger().log(diagnostics::Severity::error,
                 "installAndStart: expected the absolute path of a directory, got \"", directory.native(),
                 "\"; nothing is taken from there");
    return false;
  }
  std::error_code error;
  return fs::is_directory(directory, error) && isTrusted(fs::canonical(directory));
}

std::vector<fs::path> bundleFiles(const fs::path& directory) {
  std::vector<fs::path> files;
  if (!isUsable(directory)) {
    return files;
  }
  // The framework knows a bundle by its path, so one spelling of it must be used.
  for (const auto& entry : fs::directory_iterator(fs::canonical(directory))) {
    if (entry.is_regular_file() && entry.path().extension() == ".so") {
      if (auto file = fs::canonical(entry.path()); isTrusted(file)) {
        files.push_back(std::move(file));
      }
    }
  }
  std::ranges::sort(files);
  return files;
}

bool isInstalled(const cppmicroservices::BundleContext& context, const fs::path& file) {
  return std::ranges::any_of(context.GetBundles(),
                             [&file](const auto& bundle) { return bundle.GetLocation() == file.native(); });
}

void startFrom(cppmicroservices::BundleContext context, const fs::path& file,
               std::vector<cppmicroservices::Bundle>& started) {
  try {
    if (!isInstalled(context, file)) {  // what runs does not suffer from what became of its file
      checkBundleFile(file);
    }
    for (auto& bundle : context.InstallBundles(file.native())) {
      bundle.Start();
      started.push_back(bundle);
    }
  } catch (const std::exception& error) {
    throw std::runtime_error("Cannot install and start the bundle " + file.native() + ": " + error.what());
  }
}

}  // namespace

std::vector<cppmicroservices::Bundle> installAndStart(const std::u16string& directory) {
  static std::mutex oneAtATime;
  const std::lock_guard lock(oneAtATime);
  const auto files = bundleFiles(toNarrow(directory));
  const auto framework = getFramework();
  if (!framework) {
    return std::vector<cppmicroservices::Bundle>(files.size());
  }
  std::vector<cppmicroservices::Bundle> started;
  if (!files.empty()) {
    const auto context = framework->GetBundleContext();
    static_cast<void>(context.GetBundle());  // a framework that does not run is no fault of the first bundle
    for (const auto& file : files) {
      startFrom(context, file, started);
    }
  }
  return started;
}

}  // namespace kestrel::framework
