#pragma once

#include <cstddef>
#include <cstdint>
#include <kestrel/memory/Buffer.hpp>
#include <span>

namespace kestrel::streams {

/// How many blocks there may be at a time that bytes were copied into only to cross to another process.
inline constexpr std::size_t mostCrossing = 256;

/// A copy of these bytes in a block that other processes can map, without an owner where there is none to be
/// had: the more `copies` the consumer has that it has not taken, the more are left for others, so that those
/// who have stopped reading leave some to everybody. Safe from any thread.
[[nodiscard]] memory::Frozen copyToCross(std::span<const std::uint8_t> bytes, std::size_t copies);

}  // namespace kestrel::streams
