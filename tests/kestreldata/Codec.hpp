#pragma once

#include <gtest/gtest.h>
#include <kestreldata/SerializationContext.hpp>
#include <kestreldata/kestreldata.hpp>

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

namespace kestreldata {

inline void PrintTo(const Array& array, std::ostream* out) {
  *out << toString(array.getType());
  for (const std::size_t size : array.getDimensions()) *out << ' ' << size;
}

}  // namespace kestreldata

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

  /// The result of parsing is ignored on purpose: torn bytes must be found out by the conversion.
  /// The same encoding with a filler before it, so long that it is walked over before it is parsed.
  [[nodiscard]] static std::vector<std::uint8_t> enlarged(std::span<const std::uint8_t> bytes) {
    constexpr std::uint8_t start[] = {5 << 3 | 2, 0x80, 0x80, 1};
    std::vector<std::uint8_t> result(sizeof(start) + 16384 + bytes.size());
    std::ranges::copy(start, result.begin());
    std::ranges::copy_backward(bytes, result.end());
    return result;
  }

  [[nodiscard]] kestreldata::Array decode(std::span<const std::uint8_t> bytes) const {
    context.checkEncoding(bytes.data(), bytes.size());
    auto message = context.createKESTREL_Array();
    static_cast<void>(message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
    return context.convertFromProtobuf(std::move(message));
  }
};
