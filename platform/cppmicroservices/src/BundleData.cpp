#include "BundleData.hpp"

#include <exception>
#include <stdexcept>

#include "FrameworkCore.hpp"
#include "cppmicroservices/BundleActivator.h"

namespace cppmicroservices::detail {

BundleData::BundleData(long id, std::string symbolicName, std::string location,
                       std::optional<BundleLibrary> library)
    : _id(id),
      _symbolicName(std::move(symbolicName)),
      _location(std::move(location)),
      _library(std::move(library)),
      _activator(nullptr, [](BundleActivator*) {}) {}

BundleData::~BundleData() = default;

Bundle::State BundleData::state() const {
  const std::lock_guard lock(_mutex);
  return _state;
}

void BundleData::setState(Bundle::State state) {
  const std::lock_guard lock(_mutex);
  _state = state;
}

BundleContext BundleData::context() const {
  const std::lock_guard lock(_mutex);
  return BundleContext(_context);
}

std::unique_lock<std::recursive_mutex> BundleData::lockOperation() {
  return std::unique_lock(_operationMutex);
}

BundleContext BundleData::beginRun(const Bundle& self, Bundle::State state) {
  const std::lock_guard lock(_mutex);
  _state = state;
  _context = std::make_shared<ContextData>(FrameworkCore::of(self), BundleData::of(self));
  return BundleContext(_context);
}

void BundleData::endRun(const Bundle& self) {
  {
    const std::lock_guard lock(_mutex);
    if (_context) {
      _context->invalidate();
    }
    _context.reset();
  }
  FrameworkCore::of(self)->services().removeAllOf(self);
}

void BundleData::activate(const Bundle& self, const BundleContext& context) {
  try {
    _library->setContext(context);
    _activator = _library->createActivator();
    if (_activator) {
      _activator->Start(context);
    }
  } catch (const std::exception& error) {
    finish(self);
    throw std::runtime_error("Failed to start the bundle " + _symbolicName + " (" + _location +
                             "): " + error.what());
  } catch (...) {
    finish(self);
    throw std::runtime_error("Failed to start the bundle " + _symbolicName + " (" + _location +
                             "): its activator threw an unknown exception");
  }
}

void BundleData::start(const Bundle& self) {
  const auto operation = lockOperation();
  if ((state() & (Bundle::STATE_ACTIVE | Bundle::STATE_STARTING)) != 0) {
    return;
  }
  if (!FrameworkCore::of(self)->isRunning()) {
    throw std::logic_error("Cannot start the bundle " + _symbolicName + ": the framework does not run");
  }
  activate(self, beginRun(self, Bundle::STATE_STARTING));
  setState(Bundle::STATE_ACTIVE);
}

void BundleData::finish(const Bundle& self) {
  setState(Bundle::STATE_STOPPING);
  endRun(self);
  _activator.reset();
  _library->setContext(BundleContext());
  setState(Bundle::STATE_RESOLVED);
}

void BundleData::stop(const Bundle& self) {
  const auto operation = lockOperation();
  if (state() != Bundle::STATE_ACTIVE) {
    return;
  }
  setState(Bundle::STATE_STOPPING);
  std::exception_ptr failure;
  try {
    if (_activator) {
      _activator->Stop(context());
    }
  } catch (...) {
    failure = std::current_exception();
  }
  finish(self);
  if (failure) {
    std::rethrow_exception(failure);
  }
}

}  // namespace cppmicroservices::detail
