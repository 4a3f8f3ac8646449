#pragma once

#include <cstddef>
#include <memory>

#include "kestreldata/Array.hpp"
#include "kestreldata/EncodedArray.hpp"
#include "kestreldata/Export.hpp"
// The generated header uses the export macro without including it.
#include "kestreldata/KESTREL_Array.pb.h"

namespace kestreldata {

class ArrayFactory;

/// Hooks for table types, which this library does not have yet. Nothing calls them.
class KESTRELDATA_EXPORT DataFrameWriter {
 public:
  virtual ~DataFrameWriter();
};

class KESTRELDATA_EXPORT DataFrameReader {
 public:
  virtual ~DataFrameReader();
};

/// How sparse arrays are to travel, once there are any.
enum class OptimizedSparseFormat : int { compressedColumns = 0, coordinates = 1 };

/// Cells may lie this deep within each other in an encoded array; an array that is no cell counts as one
/// level. Within what the protobuf parser itself allows.
inline constexpr std::size_t maxNestingDepth = 64;

/// What the parts of an array (cells, strings, dimensions beyond the second) may take in memory while it is
/// decoded, the bytes of its elements apart: 1 GiB. A cell counts as 320 bytes, a string as 64, a dimension
/// as 32, so a message may have up to 3,355,443 cells or 16,777,216 strings.
inline constexpr std::size_t maxStructureBytes = std::size_t{1} << 30;

/// Converts arrays to protobuf messages and back. Has no state: any number of threads may convert through one
/// context at once.
class KESTRELDATA_EXPORT SerializationContext {
 public:
  /// The factory stands for the array store that decoded arrays belong to; there is one, this process's heap.
  /// The other arguments are reserved for tables and sparse arrays and may be anything; none is kept.
  SerializationContext(ArrayFactory& factory, bool tablesByValue, std::shared_ptr<DataFrameWriter> writer,
                       std::shared_ptr<DataFrameReader> reader, OptimizedSparseFormat sparseFormat);
  SerializationContext(const SerializationContext&) = delete;
  SerializationContext& operator=(const SerializationContext&) = delete;
  virtual ~SerializationContext();

  /// An empty message, to parse into.
  [[nodiscard]] std::unique_ptr<KESTREL_Array> createKESTREL_Array() const;

  /// The array as a message to serialise; no element is copied. Throws SerializationException for an
  /// array that could not be decoded again: more than 2^31-1 bytes, nested deeper than maxNestingDepth, or of
  /// more parts than maxStructureBytes allows.
  [[nodiscard]] std::unique_ptr<const EncodedArray> convertToProtobuf(const Array& array) const;

  /// To be called before an encoding of unknown origin is parsed: parsing builds every cell and every length
  /// of a string that the bytes name, up to 80 times their size, before convertFromProtobuf() can look at the
  /// result. Walks over the bytes, building nothing and passing over payloads, and throws
  /// SerializationException for an encoding that is torn, has other numbers of cells or strings than its
  /// dimensions say, is nested deeper than maxNestingDepth or exceeds maxStructureBytes or 2^31-1 bytes.
  /// Decoding what passes takes up at most twice its size for elements (text; numbers once) and
  /// maxStructureBytes for the rest. Below 16 KiB, where parsing is harmless, everything passes.
  void checkEncoding(const void* data, std::size_t size) const;

  /// The array that a parsed message stands for. A large array that is half of the message or more holds on
  /// to the message instead of copying its elements. Throws SerializationException for a message that is
  /// torn, contradicts itself or is nested deeper than maxNestingDepth, before anything is allocated for its
  /// elements. A null message counts as a torn one.
  [[nodiscard]] Array convertFromProtobuf(std::unique_ptr<KESTREL_Array> message) const;

  /// The array of an encoding of any origin: what checkEncoding(), parsing and convertFromProtobuf() give one
  /// after the other, without a message between. Where the bytes lie in a frozen kestrel::memory::Buffer, a
  /// large array that is half of them or more holds on to them instead of copying its elements.
  [[nodiscard]] Array decode(const void* data, std::size_t size) const;
};

}  // namespace kestreldata
