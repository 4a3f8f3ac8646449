#pragma once

#include <memory>
#include <string>
#include <utility>

#include "delivery/ErrorReporter.hpp"
#include "delivery/StreamCounters.hpp"

namespace kestrel::streams {

/// What every end of one stream, as one factory opened it, shares: its name, its counters and the thread for
/// its error callbacks. Kept alive by the stream and its ends, so it may outlive the factory.
struct StreamContext {
  StreamContext(std::string streamId, std::shared_ptr<ErrorReporter> errorReporter)
      : id(std::move(streamId)), reporter(std::move(errorReporter)) {}

  /// How texts of errors call the stream.
  [[nodiscard]] std::string label() const { return id.empty() ? "anonymous stream" : "stream '" + id + "'"; }

  const std::string id;
  const std::shared_ptr<ErrorReporter> reporter;
  StreamCounters counters;
};

}  // namespace kestrel::streams
