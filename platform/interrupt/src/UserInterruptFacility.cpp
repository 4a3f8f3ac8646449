#include "kestrel/interrupt/UserInterruptFacility.hpp"

#include <mutex>

namespace kestrel::interrupt {

namespace {

struct Installed {
  std::mutex mutex;
  std::shared_ptr<UserInterruptFacility> facility;  // guarded by mutex
};

Installed& installed() {
  static auto* const state = new Installed;  // never freed: threads may still wait while the process exits
  return *state;
}

std::shared_ptr<UserInterruptFacility> current() noexcept {
  std::lock_guard lock(installed().mutex);
  return installed().facility;
}

}  // namespace

UserInterruptFacility::~UserInterruptFacility() = default;

void setUserInterruptFacility(std::shared_ptr<UserInterruptFacility> facility) {
  std::lock_guard lock(installed().mutex);
  installed().facility.swap(facility);  // the old one goes with the parameter, after the lock
}

bool interruptsObserved() noexcept {
  const auto facility = current();
  return facility && facility->observedOnThisThread();
}

bool interruptPending() noexcept {
  const auto facility = current();
  return facility && facility->pending();
}

void raiseInterrupt() {
  if (const auto facility = current()) facility->raise();
}

}  // namespace kestrel::interrupt
