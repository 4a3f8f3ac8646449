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
  /// array that could not be decoded again: more than 2^31-1 bytes, or nested deeper than maxNestingDepth.
  [[nodiscard]] std::unique_ptr<const EncodedArray> convertToProtobuf(const Array& array) const;

  /// The array that a parsed message stands for; takes the parsed elements over without copying them. Throws
  /// SerializationException for a message that is torn, contradicts itself or is nested deeper than
  /// maxNestingDepth, before anything is allocated for its elements. A null message counts as a torn one.
  [[nodiscard]] Array convertFromProtobuf(std::unique_ptr<KESTREL_Array> message) const;
};

}  // namespace kestreldata
