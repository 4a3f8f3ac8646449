#include "kestrel/interrupt/SigintFacility.hpp"

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace kestrel::interrupt {

namespace {

std::atomic<bool> isInterrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler may only use lock-free atomics");

std::atomic<bool> exists{false};

void onSigint(int) {
  isInterrupted = true;
}

}  // namespace

SigintFacility::SigintFacility() {
  if (exists.exchange(true)) {
    throw std::logic_error(
        "SigintFacility: expected to be the only one of the process, but another one exists");
  }
  isInterrupted = false;
  struct sigaction action {};
  action.sa_handler = onSigint;
  action.sa_flags = SA_RESTART;  // code that knows nothing of interrupts must not see its calls fail
  sigemptyset(&action.sa_mask);
  if (sigaction(SIGINT, &action, &_previous) != 0) {
    const int error = errno;
    exists = false;
    throw std::system_error(error, std::generic_category(), "SigintFacility: cannot handle SIGINT");
  }
}

SigintFacility::~SigintFacility() {
  struct sigaction active {};
  if (sigaction(SIGINT, nullptr, &active) == 0 && active.sa_handler == onSigint) {
    sigaction(SIGINT, &_previous, nullptr);
  }
  exists = false;
}

bool SigintFacility::observedOnThisThread() const noexcept {
  return std::this_thread::get_id() == _observer;
}

bool SigintFacility::pending() const noexcept {
  return isInterrupted;
}

void SigintFacility::raise() {
  if (isInterrupted.exchange(false)) throw UserInterrupt();
}

}  // namespace kestrel::interrupt
