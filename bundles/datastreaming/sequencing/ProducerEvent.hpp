#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace kestrel::streams {

/// News of a producer, in the place of a message.
struct ProducerEvent {
  enum class Kind {
    gone,       ///< it will send nothing more
    abandoned,  ///< it has given up the payload that it had begun
    idle,       ///< it has sent nothing for a while
  };
  Kind kind = Kind::gone;
  std::uint64_t producer = 0;
  std::uint64_t after = 0;                            ///< the number of its last message before the news
  std::optional<std::chrono::milliseconds> age = {};  ///< how long ago it sent its first message
};

}  // namespace kestrel::streams
