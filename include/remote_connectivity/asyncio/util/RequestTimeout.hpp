#pragma once

#include <chrono>

#include "remote_connectivity/asyncio/util/Export.hpp"

namespace remote_connectivity::asyncio::util {

/// The time-out that the environment variable "QX_ASYNCIO_MESSENGER_REQUEST_TIMEOUT" asks for, in seconds;
/// 20 where it is not set or has no usable value, which is logged. For callers that want the configured
/// value: the messengers' own wait is 20 seconds whatever it says.
REMOTE_CONNECTIVITY_EXPORT std::chrono::seconds getRequestTimeout();

}  // namespace remote_connectivity::asyncio::util
