#include "FrameworkCore.hpp"

#include <algorithm>

#include "ConstantNames.hpp"

namespace cppmicroservices::detail {

FrameworkCore::FrameworkCore()
    : _system(std::make_shared<BundleData>(0, names::systemBundleSymbolicName, names::systemBundleLocation,
                                           std::nullopt)),
      _bundles{_system} {}

Bundle FrameworkCore::handle(const std::shared_ptr<BundleData>& data) {
  return {shared_from_this(), data};
}

Bundle FrameworkCore::systemBundle() {
  return handle(_system);
}

std::vector<Bundle> FrameworkCore::bundles() {
  const std::lock_guard lock(_mutex);
  std::vector<Bundle> handles;
  std::ranges::transform(_bundles, std::back_inserter(handles),
                         [this](const auto& data) { return handle(data); });
  return handles;
}

bool FrameworkCore::isRunning() const {
  return (_system->state() & (Bundle::STATE_STARTING | Bundle::STATE_ACTIVE)) != 0;
}

std::shared_ptr<BundleData> FrameworkCore::findByLocation(const std::string& location) {
  const auto found = std::ranges::find(_bundles, location, [](const auto& data) { return data->location(); });
  return found == _bundles.end() ? nullptr : *found;
}

Bundle FrameworkCore::install(const std::string& location) {
  {
    const std::lock_guard lock(_mutex);
    if (const auto known = findByLocation(location)) {
      return handle(known);
    }
  }
  // Loading runs the initialisers of the shared object, so the lock is not held. Loading it twice is
  // harmless.
  BundleLibrary library(location);
  const std::lock_guard lock(_mutex);
  if (const auto known = findByLocation(location)) {
    return handle(known);
  }
  auto name = library.symbolicName();
  _bundles.push_back(std::make_shared<BundleData>(_nextId++, std::move(name), location, std::move(library)));
  return handle(_bundles.back());
}

void FrameworkCore::init() {
  const auto operation = _system->lockOperation();
  if (isRunning()) {
    return;
  }
  {
    const std::lock_guard lock(_mutex);
    _running = true;
  }
  _system->beginRun(systemBundle(), Bundle::STATE_STARTING);
}

void FrameworkCore::start() {
  const auto operation = _system->lockOperation();
  init();
  _system->setState(Bundle::STATE_ACTIVE);
}

void FrameworkCore::stop() {
  const auto operation = _system->lockOperation();
  if (!isRunning()) {
    return;
  }
  _system->setState(Bundle::STATE_STOPPING);
  auto lastFirst = bundles();
  std::reverse(lastFirst.begin(), lastFirst.end());
  for (const auto& bundle : lastFirst) {
    try {
      if (!BundleData::of(bundle)->isSystem()) {
        BundleData::of(bundle)->stop(bundle);
      }
    } catch (...) {  // The bundle is stopped all the same, and the others follow.
    }
  }
  _system->endRun(systemBundle());
  _system->setState(Bundle::STATE_RESOLVED);
  {
    const std::lock_guard lock(_mutex);
    _running = false;
  }
  _stopped.notify_all();
}

bool FrameworkCore::waitForStop(std::chrono::milliseconds timeout) {
  std::unique_lock lock(_mutex);
  const auto atRest = [this] { return !_running; };
  if (timeout.count() == 0) {
    _stopped.wait(lock, atRest);
    return true;
  }
  return _stopped.wait_for(lock, timeout, atRest);
}

}  // namespace cppmicroservices::detail
