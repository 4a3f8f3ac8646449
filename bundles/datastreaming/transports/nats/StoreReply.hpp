#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "transports/nats/NatsHandles.hpp"

namespace kestrel::streams {

/// What the server answered to a message that it was to store.
struct StoreReply {
  std::uint64_t sequence = 0;  ///< the number under which it is stored
  std::string error;           ///< empty if it is stored
};

/// Reads the JSON that the server sends: {"stream":..., "seq":N} or {"error":{..."description":...}}.
[[nodiscard]] StoreReply readStoreReply(std::string_view json);
[[nodiscard]] StoreReply readStoreReply(natsMsg* reply);

}  // namespace kestrel::streams
