#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kestreldata::detail {

/// Walks over an encoding, as SerializationContext::checkEncoding() describes. Needs next to no memory and
/// passes over payloads without reading them.
void scanEncoding(std::span<const std::uint8_t> bytes);

}  // namespace kestreldata::detail
