#include "kestreldata/SerializationContext.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "Decoder.hpp"
#include "EncodingScan.hpp"
#include "Wire.hpp"
#include "kestrel/memory/Buffer.hpp"
#include "kestreldata/ArrayFactory.hpp"
#include "kestreldata/Exceptions.hpp"

namespace kestreldata {

// Parsing a smaller encoding takes up less than 5 MB whatever it holds, and walking over it first would cost
// a noticeable part of decoding it.
constexpr std::size_t smallEncoding = std::size_t{16} * 1024;

DataFrameWriter::~DataFrameWriter() = default;
DataFrameReader::~DataFrameReader() = default;

SerializationContext::SerializationContext(ArrayFactory&, bool, std::shared_ptr<DataFrameWriter>,
                                           std::shared_ptr<DataFrameReader>, OptimizedSparseFormat) {}

SerializationContext::~SerializationContext() = default;

std::unique_ptr<KESTREL_Array> SerializationContext::createKESTREL_Array() const {
  return std::make_unique<KESTREL_Array>();
}

std::unique_ptr<const EncodedArray> SerializationContext::convertToProtobuf(const Array& array) const {
  return std::unique_ptr<const EncodedArray>(new EncodedArray(array));
}

void SerializationContext::checkEncoding(const void* data, std::size_t size) const {
  if (size < smallEncoding) return;
  if (size > detail::maxEncodedBytes)
    throw SerializationException("Expected an array message of at most " +
                                 std::to_string(detail::maxEncodedBytes) + " bytes, got " +
                                 std::to_string(size));
  detail::scanEncoding({static_cast<const std::uint8_t*>(data), size});
}

Array SerializationContext::convertFromProtobuf(std::unique_ptr<KESTREL_Array> message) const {
  if (message == nullptr) throw SerializationException("Expected a parsed array message, got none");
  const std::shared_ptr<const KESTREL_Array> kept(std::move(message));
  return detail::decode(detail::encodingOf(*kept), {kept, kept->ByteSizeLong()});
}

Array SerializationContext::decode(const void* data, std::size_t size) const {
  checkEncoding(data, size);
  const bool counted = size >= smallEncoding;  // by the check
  const auto encoding = detail::readEncoding({static_cast<const std::uint8_t*>(data), size}, counted);
  return detail::decode(encoding, {kestrel::memory::ownerOf(data, size).owner, size});
}

}  // namespace kestreldata
