#include "EncodingScan.hpp"

#include <algorithm>
#include <array>
#include <limits>

#include "Requirement.hpp"
#include "StructureCost.hpp"
#include "Wire.hpp"

namespace kestreldata::detail {

namespace {

// Protobuf's wire types; the two for groups occur in no message of ours.
enum WireType : unsigned { varint = 0, fixed64 = 1, lengthDelimited = 2, fixed32 = 5 };

[[noreturn]] void refuse(const char* expected) {
  throw SerializationException("Invalid array message: expected " + std::string(expected));
}

/// The product of dimensions; one that overflows is more than any message can hold.
class Product {
 public:
  void multiply(std::uint64_t factor) {
    if (__builtin_mul_overflow(_value, factor, &_value)) _value = std::numeric_limits<std::uint64_t>::max();
    _isZero |= factor == 0;
  }
  [[nodiscard]] std::uint64_t value() const { return _isZero ? 0 : _value; }

 private:
  std::uint64_t _value = 1;
  bool _isZero = false;
};

/// What has been seen of a message that has begun and not ended.
struct Level {
  const std::uint8_t* end = nullptr;
  std::uint32_t type = 0;
  std::uint64_t rows = 0;
  std::uint64_t columns = 0;
  Product higher;
  std::size_t cells = 0;
  std::size_t lengths = 0;
};

class Scan {
 public:
  explicit Scan(std::span<const std::uint8_t> bytes) : _at(bytes.data()) {
    _levels.front().end = bytes.data() + bytes.size();
  }

  void run() {
    for (;;) {
      if (_at != level().end) {
        field();
      } else if (finish(); _depth-- == 1) {
        return;
      }
    }
  }

 private:
  [[nodiscard]] Level& level() { return _levels[_depth - 1]; }

  void field() {
    const std::uint64_t key = number();
    const std::uint64_t field = key >> 3;
    switch (key & 7) {
      case varint:
        return take(field, number());
      case fixed64:
        return skip(8);
      case fixed32:
        return skip(4);
      case lengthDelimited:
        return takeBytes(field, number());
      default:
        refuse("a field of a known wire type");
    }
  }

  [[nodiscard]] std::uint64_t number() {
    std::uint64_t value = 0;
    for (unsigned shift = 0; shift < 70; shift += 7) {
      if (_at == level().end) refuse("a number that ends within its message");
      const std::uint8_t byte = *_at++;
      value |= std::uint64_t{byte & 127U} << shift;
      if (byte < 128) return value;
    }
    refuse("a number of at most 10 bytes");
  }

  void skip(std::uint64_t bytes) {
    if (bytes > static_cast<std::uint64_t>(level().end - _at)) refuse("a field that ends within its message");
    _at += bytes;
  }

  void take(std::uint64_t field, std::uint64_t value) {
    if (field == fieldNumber(Tag::type)) level().type = static_cast<std::uint32_t>(value);
    if (field == fieldNumber(Tag::rows)) level().rows = value;
    if (field == fieldNumber(Tag::columns)) level().columns = value;
    if (field == fieldNumber(Tag::higherDimensions)) addHigherDimension(value);
    if (field == fieldNumber(Tag::stringLengths)) addLengths(1);
  }

  void takeBytes(std::uint64_t field, std::uint64_t size) {
    const std::uint8_t* const begin = _at;
    skip(size);
    if (field == fieldNumber(Tag::cells)) return enter(begin);
    if (field == fieldNumber(Tag::stringLengths))
      addLengths(static_cast<std::size_t>(std::count_if(begin, _at, [](auto byte) { return byte < 128; })));
    if (field != fieldNumber(Tag::higherDimensions)) return;
    const std::uint8_t* const end = _at;
    for (_at = begin; _at < end;) addHigherDimension(number());
    if (_at != end) refuse("dimensions that end with their field");
  }

  void enter(const std::uint8_t* begin) {
    ++level().cells;
    _cost.addArrays(1);
    require(_depth < maxNestingDepth, "a nesting depth of at most", maxNestingDepth, _depth + 1);
    _levels[_depth] = Level();
    _levels[_depth].end = _at;
    _at = begin;
    ++_depth;
  }

  void addHigherDimension(std::uint64_t size) {
    _cost.addHigherDimensions(1);
    level().higher.multiply(size);
  }

  void addLengths(std::size_t count) {
    _cost.addStrings(count);
    level().lengths += count;
  }

  void finish() {
    Product elements = level().higher;
    elements.multiply(level().rows);
    elements.multiply(level().columns);
    const auto type = static_cast<ArrayType>(level().type);
    requireEqual("cells,", type == ArrayType::CELL ? elements.value() : 0, level().cells);
    requireEqual("string lengths,", type == ArrayType::STRING ? elements.value() : 0, level().lengths);
  }

  const std::uint8_t* _at;
  std::size_t _depth = 1;
  std::array<Level, maxNestingDepth> _levels;  // from the outermost message to the one that is being read
  StructureCost _cost;
};

}  // namespace

void scanEncoding(std::span<const std::uint8_t> bytes) {
  Scan(bytes).run();
}

}  // namespace kestreldata::detail
