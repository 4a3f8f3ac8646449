#pragma once

#include <kestrel/datastreaming/Types.hpp>
#include <string>

namespace kestrel::streams {

/// What the chunk attributes of a message say.
struct ChunkMark {
  bool chunk = false;  ///< a piece of a payload
  bool last = true;    ///< no piece follows
  std::string fault;   ///< not empty: an attribute holds a value of the wrong kind, in words
};

/// Reads MessageAttributes::CompressionType and, in a chunk only, MessageAttributes::UnCompressedSize.
[[nodiscard]] ChunkMark readChunkMark(const datastreaming::AttributeMap& attributes);

}  // namespace kestrel::streams
