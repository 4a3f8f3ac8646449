#pragma once

#include "kestrel/diagnostics/RecordObserver.hpp"

namespace kestrel::diagnostics {

/// Hands the record to the Boost.Log core if setBoostLogOutput() wants it there. Throws what a sink throws.
void writeToBoostLog(const Record& record);

}  // namespace kestrel::diagnostics
