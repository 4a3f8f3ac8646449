#include "sequencing/ChunkMark.hpp"

#include <kestrel/datastreaming/Keys.hpp>

namespace kestrel::streams {

using datastreaming::lasting::MessageAttributes;

ChunkMark readChunkMark(const datastreaming::AttributeMap& attributes) {
  ChunkMark mark;
  if (attributes.empty()) return mark;
  const auto kind = attributes.find(MessageAttributes::CompressionType);
  if (kind == attributes.end()) return mark;
  const auto* text = std::get_if<std::string>(&kind->second);
  if (text == nullptr) {
    mark.fault = "attribute " + MessageAttributes::CompressionType + " must be a text, an integer came";
    return mark;
  }
  if (*text != "chunk") return mark;
  mark.chunk = true;
  const auto more = attributes.find(MessageAttributes::UnCompressedSize);
  if (more == attributes.end()) return mark;
  if (const auto* size = std::get_if<long>(&more->second)) {
    mark.last = *size <= 0;
    return mark;
  }
  // Whether it was meant as the last piece is unknown; taking it for one could join two payloads.
  mark.last = false;
  mark.fault =
      "attribute " + MessageAttributes::UnCompressedSize + " of a chunk must be an integer, a text came";
  return mark;
}

}  // namespace kestrel::streams
