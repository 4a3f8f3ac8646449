#pragma once

#include "kestreldata/SerializationContext.hpp"

namespace kestreldata::detail {

/// Builds the array of a message, whose elements it takes over. See
/// SerializationContext::convertFromProtobuf.
[[nodiscard]] Array decode(KESTREL_Array& message);

}  // namespace kestreldata::detail
