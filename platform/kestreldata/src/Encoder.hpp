#pragma once

#include "kestreldata/SerializationContext.hpp"

namespace kestreldata::detail {

/// Builds the message of an array. See SerializationContext::convertToProtobuf.
[[nodiscard]] EncodedArray encode(const Array& array);

}  // namespace kestreldata::detail
