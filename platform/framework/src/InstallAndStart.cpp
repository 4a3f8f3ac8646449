#include "kestrel/framework/InstallAndStart.hpp"

#include <cppmicroservices/BundleContext.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <stdexcept>

#include "kestrel/framework/Framework.hpp"
#include "kestrel/framework/InstallPath.hpp"

namespace kestrel::framework {

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> bundleFiles(const fs::path& directory) {
  std::vector<fs::path> files;
  std::error_code error;
  if (!fs::is_directory(directory, error)) {
    return files;
  }
  for (const auto& entry : fs::directory_iterator(directory)) {
    if (entry.is_regular_file() && entry.path().extension() == ".so") {
      // The framework knows a bundle by its path, so one spelling of it must be used.
      files.push_back(fs::canonical(entry.path()));
    }
  }
  std::ranges::sort(files);
  return files;
}

void startFrom(cppmicroservices::BundleContext context, const fs::path& file,
               std::vector<cppmicroservices::Bundle>& started) {
  try {
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
