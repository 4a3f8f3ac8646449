#pragma once

#include <kestreldata/SerializationContext.hpp>

#include <cstdint>
#include <span>
#include <vector>

#include "../PrintArray.hpp"

/// Arrays to bytes and back, as a user of the library does it.
struct Codec {
  kestreldata::standalone::ArrayFactory factory;
  kestreldata::SerializationContext context{factory, false, nullptr, nullptr,
                                            kestreldata::OptimizedSparseFormat::coordinates};

  [[nodiscard]] static std::vector<std::uint8_t> bytesOf(const auto& message) {
    std::vector<std::uint8_t> bytes(message.ByteSizeLong());
    EXPECT_TRUE(message.SerializeToArray(bytes.data(), static_cast<int>(bytes.size())));
    return bytes;
  }
  [[nodiscard]] std::vector<std::uint8_t> encode(const kestreldata::Array& array) const {
    return bytesOf(*context.convertToProtobuf(array));
  }

  [[nodiscard]] kestreldata::Array nested(std::size_t depth) const {
    return depth == 1 ? kestreldata::Array() : factory.createCellArray({1, 1}, nested(depth - 1));
  }

  /// The same encoding with a filler before it, so long that it is walked over before it is parsed.
  [[nodiscard]] static std::vector<std::uint8_t> enlarged(std::vector<std::uint8_t> bytes) {
    bytes.insert(bytes.begin(), 16384, 0);
    bytes.insert(bytes.begin(), {5 << 3 | 2, 0x80, 0x80, 1});
    return bytes;
  }

  /// The result of parsing is ignored on purpose: torn bytes must be found out by the conversion.
  [[nodiscard]] auto parsed(std::span<const std::uint8_t> bytes) const {
    auto message = context.createKESTREL_Array();
    static_cast<void>(message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
    return message;
  }
  [[nodiscard]] kestreldata::Array decode(std::span<const std::uint8_t> bytes) const {
    context.checkEncoding(bytes.data(), bytes.size());
    return context.convertFromProtobuf(parsed(bytes));
  }
};
