#pragma once

#include <stdexcept>

#include "kestrel/export/Export.hpp"

namespace kestrel::interrupt {

/// Thrown by SigintFacility::raise(): the user asked to stop.
class KESTREL_EXPORT UserInterrupt : public std::runtime_error {
 public:
  UserInterrupt() : std::runtime_error("Interrupted.") {}
};

}  // namespace kestrel::interrupt
