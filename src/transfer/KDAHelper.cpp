#include "remote_connectivity/asyncio/util/KDAHelper.hpp"

#include <kestreldata/CharArray.hpp>
#include <kestreldata/SerializationContext.hpp>

namespace remote_connectivity::asyncio::util {

using kestreldata::Array;
using kestreldata::ArrayType;
using kestreldata::TypedArray;

namespace {

/// A copy that static destruction does not take: messages are read until the very end of the process.
const std::string& notAStringError = *new const std::string(KDAHelper::NotAStringError);

}  // namespace

KDAHelper::KDAHelper() = default;

KDAHelper::KDAHelper(const std::shared_ptr<kestreldata::ArrayFactory>& factory) : _factory(factory) {}

KDAHelper::~KDAHelper() = default;

kestreldata::ArrayFactory& KDAHelper::getFactory() {
  if (!_factory) _factory = std::make_shared<kestreldata::standalone::ArrayFactory>();
  return *_factory;
}

kestreldata::SerializationContext& KDAHelper::getSerializationContext() {
  if (!_serializationContext) {
    _serializationContext = std::make_unique<kestreldata::SerializationContext>(
        getFactory(), false, nullptr, nullptr, kestreldata::OptimizedSparseFormat::coordinates);
  }
  return *_serializationContext;
}

std::pair<std::string, std::string> KDAHelper::kdaToString(const Array& array) {
  switch (array.getType()) {
    case ArrayType::CHAR:
      return {kestreldata::CharArray(array).toAscii(), ""};
    case ArrayType::STRING: {
      const TypedArray<kestreldata::optional<std::u16string>> strings(array);
      return {kestreldata::castToString(strings[0]), ""};
    }
    default:
      return {"", notAStringError};
  }
}

std::vector<std::uint8_t> KDAHelper::kdaToByteArray(const Array& array) {
  if (array.getType() != ArrayType::UINT8) return {};
  const TypedArray<std::uint8_t> bytes(array);
  return {bytes.begin(), bytes.end()};
}

std::vector<std::uint8_t> KDAHelper::kdaToProtobufBytes(const Array& array) {
  const auto message = getSerializationContext().convertToProtobuf(array);
  std::vector<std::uint8_t> bytes(message->ByteSizeLong());
  if (!message->SerializeToArray(bytes.data(), static_cast<int>(message->ByteSizeLong()))) bytes.clear();
  return bytes;
}

Array KDAHelper::kdaFromProtobuf(const std::uint8_t* data, std::size_t size) {
  return getSerializationContext().decode(data, size);
}

Array KDAHelper::kdaFromByteArray(const std::vector<std::uint8_t>& bytes) {
  return getFactory().createArrayWithData(ArrayType::UINT8, {1, bytes.size()}, bytes.data(), bytes.size());
}

void KDAHelper::extendArray(TypedArray<Array>& cell, std::size_t n) {
  auto dimensions = cell.getDimensions();
  const std::size_t oldColumns = dimensions[1];
  dimensions[1] += n;
  TypedArray<Array> extended(getFactory().createArray(ArrayType::CELL, dimensions));
  const TypedArray<Array>& old = cell;
  for (std::size_t column = 0; column < oldColumns; ++column) {
    extended[0][column] = static_cast<Array>(old[0][column]);
  }
  cell = std::move(extended);
}

}  // namespace remote_connectivity::asyncio::util
