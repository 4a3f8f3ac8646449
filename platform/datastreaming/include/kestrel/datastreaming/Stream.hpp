#pragma once

#include <string>

namespace kestrel::datastreaming {

/// One named stream. Immutable, so any thread may use it.
class Stream {
 public:
  virtual ~Stream() = default;

  /// The identifier that the stream was opened with; empty for a private anonymous stream.
  [[nodiscard]] virtual std::string id() const = 0;
};

}  // namespace kestrel::datastreaming
