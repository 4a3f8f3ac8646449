#include "kestrel/host/Host.hpp"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <stdexcept>

#include "kestrel/diagnostics/Logger.hpp"
#include "kestrel/framework/Framework.hpp"
#include "kestrel/framework/InstallPath.hpp"
#include "kestrel/threadpool/makeThreadPool.hpp"

namespace kestrel::host {

namespace {

/// The right to be the process's host.
class Place {
 public:
  Place() {
    if (taken().test_and_set()) {
      throw std::logic_error("Expected no other Host in this process, but one exists; destroy it first");
    }
    if (kestrel::framework::getFramework()) {
      taken().clear();
      throw std::logic_error("Expected a process without a service framework, but another host has set one");
    }
  }
  ~Place() { taken().clear(); }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

 private:
  static std::atomic_flag& taken() {
    static std::atomic_flag flag;
    return flag;
  }
};

/// The overridden installation path, for as long as it lives.
class PathOverride {
 public:
  explicit PathOverride(const std::filesystem::path& path) : _isSet(!path.empty()) {
    if (_isSet) {
      kestrel::framework::setInstallPath(std::filesystem::absolute(path).u16string());
    }
  }
  ~PathOverride() {
    if (_isSet) {
      kestrel::framework::setInstallPath({});
    }
  }
  PathOverride(const PathOverride&) = delete;
  PathOverride& operator=(const PathOverride&) = delete;

 private:
  bool _isSet;
};

}  // namespace

class Host::Run {
 public:
  explicit Run(const HostOptions& options) : _path(options.installPath) {
    try {
      _framework->Start();
      if (options.registerThreadPool) {
        _threadPool = threadpool::makeThreadPool();
        static_cast<void>(
            _framework->GetBundleContext().RegisterService<threadpool::ThreadPool>(_threadPool));
      }
    } catch (...) {
      stop();
      throw;
    }
    kestrel::framework::setFramework(_framework);
  }

  ~Run() {
    kestrel::framework::setFramework(nullptr);
    stop();
  }

  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

 private:
  void stop() noexcept {
    const diagnostics::Logger log("kestrel::host");
    try {
      _framework->Stop();
      // Stopping may go on in the background, and the pool is to be there until the last bundle has stopped.
      _framework->WaitForStop(std::chrono::milliseconds::zero());
    } catch (const std::exception& error) {
      log.log(diagnostics::Severity::error, "Host: stopping the service framework failed: ", error.what());
    }
  }

  // Destroyed from the last to the first.
  Place _place;
  PathOverride _path;
  std::shared_ptr<threadpool::ThreadPool> _threadPool;
  std::shared_ptr<cppmicroservices::Framework> _framework =
      std::make_shared<cppmicroservices::Framework>(cppmicroservices::FrameworkFactory().NewFramework());
};

Host::Host(const HostOptions& options) : _run(std::make_unique<Run>(options)) {}

Host::~Host() = default;

}  // namespace kestrel::host
