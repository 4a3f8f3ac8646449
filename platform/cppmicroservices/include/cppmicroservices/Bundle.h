#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "cppmicroservices/detail/Export.h"

namespace cppmicroservices {

class BundleContext;
namespace detail {
class BundleData;
class FrameworkCore;
}  // namespace detail

/// A handle to an installed bundle. A bundle's code, once loaded, stays in the process. Safe for several
/// threads at once.
class CPPMICROSERVICES_EXPORT Bundle {
 public:
  enum State : std::uint32_t {
    STATE_UNINSTALLED = 0x01,
    STATE_INSTALLED = 0x02,
    STATE_RESOLVED = 0x04,
    STATE_STARTING = 0x08,
    STATE_STOPPING = 0x10,
    STATE_ACTIVE = 0x20
  };

  /// Names no bundle; the operations throw std::invalid_argument.
  Bundle();
  Bundle(std::shared_ptr<detail::FrameworkCore> core, std::shared_ptr<detail::BundleData> data);
  virtual ~Bundle();
  Bundle(const Bundle&);
  Bundle(Bundle&&) noexcept;
  Bundle& operator=(const Bundle&);
  Bundle& operator=(Bundle&&) noexcept;

  explicit operator bool() const { return _data != nullptr; }
  bool operator==(const Bundle& other) const { return _data == other._data; }
  bool operator<(const Bundle& other) const;

  [[nodiscard]] State GetState() const;
  /// The context in which the bundle runs; an invalid one while it does not run.
  [[nodiscard]] BundleContext GetBundleContext() const;
  [[nodiscard]] long GetBundleId() const;
  /// The path the bundle was installed from.
  [[nodiscard]] std::string GetLocation() const;
  [[nodiscard]] std::string GetSymbolicName() const;

  /// Runs the bundle's activator on this thread, under no lock that its code could need. A bundle that runs
  /// is left alone. Throws std::runtime_error, which names the bundle, when the activator fails; the bundle
  /// is then not running and its services are gone. Throws std::logic_error if the framework does not run.
  void Start();

  /// Stops the activator on this thread and takes the bundle's services out of the registry. What the
  /// activator throws is rethrown when all that is done.
  void Stop();

 protected:
  [[nodiscard]] CPPMICROSERVICES_LOCAL detail::BundleData& data() const;

  std::shared_ptr<detail::FrameworkCore> _core;
  std::shared_ptr<detail::BundleData> _data;
};

}  // namespace cppmicroservices
