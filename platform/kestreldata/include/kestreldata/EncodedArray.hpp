#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kestreldata/Array.hpp"
#include "kestreldata/Export.hpp"

namespace kestreldata {

class SerializationContext;

/// An array in the role of a KESTREL_Array message that is to be serialised, with the member names of a
/// protobuf message. It keeps the array alive and reads the elements where they lie: the only copy is the one
/// into the encoding. May be read by several threads at once.
class KESTRELDATA_EXPORT EncodedArray {
 public:
  /// Length of the encoding, at most 2^31-1.
  [[nodiscard]] std::size_t ByteSizeLong() const noexcept { return _size; }

  /// Writes the encoding, ByteSizeLong() bytes. False, with nothing written, when the room is smaller.
  [[nodiscard]] bool SerializeToArray(void* data, int size) const noexcept;

 private:
  friend class SerializationContext;

  // What cannot be told from one array alone: sizes that include nested cells, fillers that depend on what
  // stands before.
  struct Node {
    std::uint32_t size = 0;    // bytes of the message without its own tag and length
    std::uint32_t filler = 0;  // bytes in its alignment field
  };

  class KESTRELDATA_LOCAL Layout;
  class KESTRELDATA_LOCAL Writer;

  /// Throws as SerializationContext::convertToProtobuf.
  KESTRELDATA_LOCAL explicit EncodedArray(const Array& array);

  Array _array;
  std::vector<Node> _nodes;  // in the order in which the messages begin
  std::size_t _size = 0;
};

}  // namespace kestreldata
