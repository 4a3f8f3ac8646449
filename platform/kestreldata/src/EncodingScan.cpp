#include "EncodingScan.hpp"

#include <algorithm>
#include <limits>
#include <vector>

#include "Requirement.hpp"
#include "StructureCost.hpp"
#include "Wire.hpp"
#include "WireReader.hpp"

namespace kestreldata::detail {

namespace {

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
  explicit Level(std::span<const std::uint8_t> message) : in(message) {}

  WireReader in;
  std::uint32_t type = 0;
  std::uint64_t rows = 0;
  std::uint64_t columns = 0;
  Product higher;
  std::size_t cells = 0;
  std::size_t lengths = 0;
};

class Scan {
 public:
  explicit Scan(std::span<const std::uint8_t> bytes) { _levels.push_back(Level(bytes)); }

  void run() {
    while (!_levels.empty()) {
      if (level().in.atEnd()) {
        finish();
        _levels.pop_back();
      } else {
        take(level().in.field());
      }
    }
  }

 private:
  [[nodiscard]] Level& level() { return _levels.back(); }

  void take(const WireReader::Field& field) {
    if (field.type == WireReader::Type::bytes) return takeBytes(field);
    if (field.type != WireReader::Type::varint) return;
    if (field.number == fieldNumber(Tag::type)) level().type = static_cast<std::uint32_t>(field.value);
    if (field.number == fieldNumber(Tag::rows)) level().rows = field.value;
    if (field.number == fieldNumber(Tag::columns)) level().columns = field.value;
    if (field.number == fieldNumber(Tag::higherDimensions)) addHigherDimension(field.value);
    if (field.number == fieldNumber(Tag::stringLengths)) addLengths(1);
  }

  void takeBytes(const WireReader::Field& field) {
    const auto bytes = field.bytes;
    if (field.number == fieldNumber(Tag::cells)) return enter(bytes);
    if (field.number == fieldNumber(Tag::stringLengths))
      addLengths(
          static_cast<std::size_t>(std::ranges::count_if(bytes, [](auto byte) { return byte < 128; })));
    if (field.number != fieldNumber(Tag::higherDimensions)) return;
    for (WireReader sizes(bytes); !sizes.atEnd();) addHigherDimension(sizes.number());
  }

  void enter(std::span<const std::uint8_t> cell) {
    ++level().cells;
    _cost.addArrays(1);
    require(_levels.size() < maxNestingDepth, "a nesting depth of at most", maxNestingDepth,
            _levels.size() + 1);
    _levels.push_back(Level(cell));
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

  std::vector<Level> _levels;  // from the outermost message to the one that is being read
  StructureCost _cost;
};

}  // namespace

void scanEncoding(std::span<const std::uint8_t> bytes) {
  Scan(bytes).run();
}

}  // namespace kestreldata::detail
