#pragma once

#include <cstdint>
#include <kestrel/memory/Blocks.hpp>
#include <kestrel/memory/Buffer.hpp>
#include <utility>

#include "sequencing/ByteBudget.hpp"
#include "sequencing/Stamp.hpp"

namespace kestrel::streams {

/// Which messages of one producer go as they lie in a frozen block, and what each costs: whoever shares one
/// piece of a payload keeps all of it, so the first one is charged for all, and the others for nothing,
/// unless there are receivers meanwhile that did not get the first. Where there is no room for so much,
/// pieces are copied, and keep themselves alone. Not thread-safe.
class PieceSharing {
 public:
  struct Message {
    const Stamp& stamp;
    const std::uint8_t* data;
    std::uint64_t size;
    const datastreaming::AttributeMap& attributes;
  };
  struct Taken {
    memory::SharedBytes owner;  ///< of the bytes if they are shared, else they are to be copied
    std::uint64_t cost = 0;
  };

  /// `receivers` changes whenever there is one more; hasRoom(cost) says whether so much would be taken.
  template <class HasRoom>
  [[nodiscard]] Taken take(const Message& message, std::uint64_t receivers, const HasRoom& hasRoom) {
    const Stamp& stamp = message.stamp;
    memory::Frozen frozen;
    if (stamp.chunked || message.size >= memory::leastKept) {
      frozen = memory::ownerOf(message.data, message.size);
    }
    const bool isFirst = stamp.chunkIndex == 0;
    const bool goesOn = !isFirst && frozen.owner && _shared.lock() == frozen.owner && receivers == _receivers;
    const std::uint64_t cost = ByteBudget::costOf(goesOn ? 0 : frozen.size, message.attributes);
    const bool shares = goesOn || (isFirst && frozen.owner && hasRoom(cost));
    _shared = shares ? frozen.owner : nullptr;
    _receivers = receivers;
    if (!shares) return {nullptr, ByteBudget::costOf(message.size, message.attributes)};
    return {std::move(frozen.owner), cost};
  }

 private:
  std::weak_ptr<const std::uint8_t> _shared;  // the bytes of the payload that goes on, if they are
  std::uint64_t _receivers = 0;               // when it began
};

}  // namespace kestrel::streams
