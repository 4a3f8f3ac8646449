#pragma once

#include <memory>

#include "transports/Transport.hpp"

namespace kestrel::streams {

/// Makes the transport for the endpoint of the settings; without an endpoint, the one within this process.
/// Throws std::runtime_error for a scheme that nothing here speaks, with the list of those known, and for an
/// endpoint that its transport cannot read.
[[nodiscard]] std::shared_ptr<Transport> makeTransport(const ServiceSettings& settings);

}  // namespace kestrel::streams
