#include "kestreldata/SerializationContext.hpp"

#include <memory>
#include <utility>

#include "Decoder.hpp"
#include "Encoder.hpp"
#include "kestreldata/ArrayFactory.hpp"
#include "kestreldata/Exceptions.hpp"

#ifdef PROTOBUF_FORCE_COPY_IN_RELEASE
#error "release_payload() must give back the very string that was lent"
#endif

namespace kestreldata {

namespace {

// The payload of a string array is the message's own; every other one is lent.
void takeBackPayloads(KESTREL_Array& message) noexcept {
  if (message.type() != static_cast<std::uint32_t>(ArrayType::STRING))
    static_cast<void>(message.release_payload());
  for (KESTREL_Array& cell : *message.mutable_cells()) takeBackPayloads(cell);
}

}  // namespace

DataFrameWriter::~DataFrameWriter() = default;
DataFrameReader::~DataFrameReader() = default;

void MessageRelease::operator()(const KESTREL_Array* message) const noexcept {
  auto* const owned = const_cast<KESTREL_Array*>(message);
  takeBackPayloads(*owned);
  delete owned;
}

SerializationContext::SerializationContext(ArrayFactory&, bool, std::shared_ptr<DataFrameWriter>,
                                           std::shared_ptr<DataFrameReader>, OptimizedSparseFormat) {}

SerializationContext::~SerializationContext() = default;

std::unique_ptr<KESTREL_Array> SerializationContext::createKESTREL_Array() const {
  return std::make_unique<KESTREL_Array>();
}

EncodedArray SerializationContext::convertToProtobuf(const Array& array) const {
  return detail::encode(array);
}

Array SerializationContext::convertFromProtobuf(std::unique_ptr<KESTREL_Array> message) const {
  if (message == nullptr) throw SerializationException("Expected a parsed array message, got none");
  return detail::decode(*message);
}

}  // namespace kestreldata
