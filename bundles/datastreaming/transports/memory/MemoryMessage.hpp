#pragma once

#include <kestrel/datastreaming/Types.hpp>

#include "sequencing/Frame.hpp"
#include "transports/memory/MessageBytes.hpp"

namespace kestrel::streams {

/// One message within the process; its consumers share it, and nobody changes it once it is queued.
struct MemoryMessage {
  MemoryMessage(const Stamp& itsStamp, const std::uint8_t* data, std::size_t size,
                const datastreaming::AttributeMap& itsAttributes)
      : stamp(itsStamp), bytes(data, size), attributes(itsAttributes) {}

  const Stamp stamp;
  TimePoint arrival;  ///< when the stream took it over
  const MessageBytes bytes;
  const datastreaming::AttributeMap attributes;
};

}  // namespace kestrel::streams
