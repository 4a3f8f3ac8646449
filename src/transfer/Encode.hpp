#pragma once

#include <kestrel/memory/Buffer.hpp>
#include <kestreldata/SerializationContext.hpp>

namespace remote_connectivity::asyncio::util {

/// The bytes that KDAHelper::kdaToProtobufBytes() gives, frozen, so that a transport within the process need
/// not copy them, and whoever decodes them there may read the elements where they lie.
[[nodiscard]] inline kestrel::memory::Buffer encode(const kestreldata::SerializationContext& context,
                                                    const kestreldata::Array& array) {
  const auto message = context.convertToProtobuf(array);
  const std::size_t size = message->ByteSizeLong();
  auto bytes = kestrel::memory::Buffer::toSend(size);
  if (!message->SerializeToArray(bytes.data(), static_cast<int>(size))) return {};
  bytes.freeze();
  return bytes;
}

}  // namespace remote_connectivity::asyncio::util
