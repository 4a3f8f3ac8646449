#pragma once

#include <memory>

#include "kestrel/export/Export.hpp"

namespace kestrel::interrupt {

/// The host's way to break off what its user waits for. A host implements it (or takes SigintFacility) and
/// installs it; code that waits asks through the free functions below. Called by any thread, also by several
/// at once.
class KESTREL_EXPORT UserInterruptFacility {
 public:
  virtual ~UserInterruptFacility();

  /// Whether a wait on the calling thread is to end when the user interrupts.
  [[nodiscard]] virtual bool observedOnThisThread() const noexcept = 0;

  /// Whether the user has interrupted and nobody has raised it yet. Called every few milliseconds.
  [[nodiscard]] virtual bool pending() const noexcept = 0;

  /// Throws the host's own exception if an interrupt is pending, which is then no longer pending.
  virtual void raise() = 0;
};

/// Installs the process's facility in place of the one before; empty: none. It is released when it has been
/// replaced and the calls that are in it have returned.
KESTREL_EXPORT void setUserInterruptFacility(std::shared_ptr<UserInterruptFacility> facility);

/// Whether the calling thread observes interrupts. False where no facility is installed.
[[nodiscard]] KESTREL_EXPORT bool interruptsObserved() noexcept;

/// Whether an interrupt is pending. False where no facility is installed.
[[nodiscard]] KESTREL_EXPORT bool interruptPending() noexcept;

/// Throws the host's interrupt if one is pending, else returns.
KESTREL_EXPORT void raiseInterrupt();

}  // namespace kestrel::interrupt
