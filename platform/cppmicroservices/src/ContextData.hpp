#pragma once

#include <atomic>
#include <memory>
#include <stdexcept>

#include "cppmicroservices/Bundle.h"

namespace cppmicroservices::detail {

/// What a BundleContext points at: one run of one bundle. It keeps neither the bundle nor the framework.
class ContextData {
 public:
  ContextData(const std::shared_ptr<FrameworkCore>& core, const std::shared_ptr<BundleData>& bundle)
      : _core(core), _bundle(bundle) {}

  void invalidate() { _valid = false; }
  [[nodiscard]] bool isValid() const { return _valid && !_core.expired(); }

  /// Throws std::runtime_error once the run is over.
  void check() const {
    if (!isValid()) {
      fail();
    }
  }
  /// As check(), and gives the bundle.
  [[nodiscard]] Bundle bundle() const {
    auto core = _core.lock();
    auto bundle = _bundle.lock();
    if (!_valid || !core || !bundle) {
      fail();
    }
    return {std::move(core), std::move(bundle)};
  }

  [[noreturn]] static void fail() { throw std::runtime_error("The bundle context is no longer valid"); }

 private:
  const std::weak_ptr<FrameworkCore> _core;
  const std::weak_ptr<BundleData> _bundle;
  std::atomic<bool> _valid = true;
};

}  // namespace cppmicroservices::detail
