#include "kestreldata/SerializationContext.hpp"

#include <memory>

#include "Decoder.hpp"
#include "kestreldata/ArrayFactory.hpp"
#include "kestreldata/Exceptions.hpp"

namespace kestreldata {

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

Array SerializationContext::convertFromProtobuf(std::unique_ptr<KESTREL_Array> message) const {
  if (message == nullptr) throw SerializationException("Expected a parsed array message, got none");
  return detail::decode(*message);
}

}  // namespace kestreldata
