#pragma once

#include "kestrel/diagnostics/RecordObserver.hpp"

namespace kestrel::diagnostics {

/// Calls every observer with the record, unless this thread is inside an observer already.
void notifyObservers(const Record& record) noexcept;

}  // namespace kestrel::diagnostics
