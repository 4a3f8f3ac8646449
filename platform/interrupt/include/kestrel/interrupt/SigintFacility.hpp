#pragma once

#include <signal.h>

#include <thread>

#include "kestrel/interrupt/UserInterrupt.hpp"
#include "kestrel/interrupt/UserInterruptFacility.hpp"

namespace kestrel::interrupt {

/// Takes SIGINT (Ctrl-C) as the user's interrupt, for programs with a terminal. The thread that constructs it
/// observes interrupts; others do not. raise() throws UserInterrupt.
///
/// Only one may live at a time. The constructor throws std::logic_error if there is one, std::system_error if
/// the signal handler cannot be installed. The destructor puts the previous signal handler back, unless
/// somebody has replaced this one's meanwhile.
class KESTREL_EXPORT SigintFacility : public UserInterruptFacility {
 public:
  SigintFacility();
  ~SigintFacility() override;
  SigintFacility(const SigintFacility&) = delete;
  SigintFacility& operator=(const SigintFacility&) = delete;

  [[nodiscard]] bool observedOnThisThread() const noexcept override;
  [[nodiscard]] bool pending() const noexcept override;
  void raise() override;

 private:
  const std::thread::id _observer = std::this_thread::get_id();
  struct sigaction _previous {};
};

}  // namespace kestrel::interrupt
