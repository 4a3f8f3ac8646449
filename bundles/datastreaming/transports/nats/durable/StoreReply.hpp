#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "transports/nats/NatsHandles.hpp"

namespace kestrel::streams {

/// What the server answered to a message that it was to store, or to a question for one that is stored.
struct StoreReply {
  std::uint64_t sequence = 0;  ///< the number under which it is stored; 0 with an error
  std::string error;           ///< empty if it is stored
};

/// Reads the JSON that the server sends: {"stream":..., "seq":N}, {"message":{"seq":N, ...}} or
/// {"error":{"description":..., ...}}. Whatever else comes is an error, too.
[[nodiscard]] StoreReply readStoreReply(std::string_view text);
[[nodiscard]] StoreReply readStoreReply(natsMsg* reply);

/// The question for the first message of that subject that is stored under that number or a higher one.
[[nodiscard]] std::string writeNextRequest(std::uint64_t from, const std::string& subject);

}  // namespace kestrel::streams
