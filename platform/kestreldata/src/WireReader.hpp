#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <string>

#include "Wire.hpp"
#include "kestreldata/Exceptions.hpp"

namespace kestreldata::detail {

/// Reads the fields of one protobuf message, one after the other, and throws SerializationException where the
/// bytes are none.
class WireReader {
 public:
  enum class Type : std::uint8_t { varint = 0, fixed64 = 1, bytes = 2, fixed32 = 5 };

  /// A field as it stands on the wire.
  struct Field {
    std::uint64_t number = 0;
    Type type = Type::varint;
    std::uint64_t value = 0;              ///< of a number; those of 64 bits are passed over
    std::span<const std::uint8_t> bytes;  ///< where the message lies
  };

  explicit WireReader(std::span<const std::uint8_t> message)
      : _at(message.data()), _end(message.data() + message.size()) {}

  [[nodiscard]] bool atEnd() const { return _at == _end; }
  /// How many bytes have not been read.
  [[nodiscard]] std::size_t left() const { return static_cast<std::size_t>(_end - _at); }

  [[nodiscard]] Field field() {
    const std::uint64_t key = number();
    Field field{key >> 3, static_cast<Type>(key & 7), 0, {}};
    if (field.number == 0) refuse("a field of a number from 1 on");
    switch (field.type) {
      case Type::varint:
        field.value = number();
        break;
      case Type::fixed64:
        (void)take(sizeof(std::uint64_t));
        break;
      case Type::bytes:
        field.bytes = take(number());
        break;
      case Type::fixed32:
        field.value = fixed32(take(sizeof(std::uint32_t)));
        break;
      default:  // those for groups occur in no message of ours
        refuse("a field of a known wire type");
    }
    return field;
  }

  /// A number in base 128.
  [[nodiscard]] std::uint64_t number() {
    std::uint64_t value = 0;
    for (unsigned shift = 0; shift < 70; shift += 7) {
      if (atEnd()) refuse("a number that ends within its message");
      const std::uint8_t byte = *_at++;
      value |= std::uint64_t{byte & 127U} << shift;
      if (byte < 128) return value;
    }
    refuse("a number of at most 10 bytes");
  }

 private:
  static std::uint32_t fixed32(std::span<const std::uint8_t> bytes) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
  }

  [[noreturn]] static void refuse(const char* expected) {
    throw SerializationException("Invalid array message: expected " + std::string(expected));
  }

  std::span<const std::uint8_t> take(std::uint64_t size) {
    if (size > static_cast<std::uint64_t>(_end - _at)) refuse("a field that ends within its message");
    const std::span taken(_at, static_cast<std::size_t>(size));
    _at += size;
    return taken;
  }

  const std::uint8_t* _at;
  const std::uint8_t* _end;
};

}  // namespace kestreldata::detail
