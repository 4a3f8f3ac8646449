#include "Decoder.hpp"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "BodyAccess.hpp"
#include "Requirement.hpp"
#include "Wire.hpp"
#include "kestreldata/Exceptions.hpp"

namespace kestreldata::detail {

static_assert(std::endian::native == std::endian::little, "payloads travel as they lie in memory");

namespace {

constexpr std::size_t leastLent = std::size_t{64} << 10;  // a smaller copy costs less than to hold on

ArrayType typeOf(const Encoding& message) {
  return static_cast<ArrayType>(message.type);
}

void checkLogical(const Encoding& message) {
  // A bool with any other representation than 0 and 1 must never be read.
  const auto bad =
      std::ranges::find_if(message.payload, [](std::uint8_t byte) { return byte != 0 && byte != 1; });
  if (bad != message.payload.end()) require(false, "logical elements of at most", 1, *bad);
}

void checkStrings(const Encoding& message) {
  const std::size_t available = message.payload.size() / sizeof(char16_t);
  std::size_t units = 0;
  for (const std::size_t length : message.stringLengths) {
    if (length == 0) continue;
    require(length - 1 <= available - units, "strings that fit into code units,", available, length - 1);
    units += length - 1;
  }
  requireEqual("bytes of string text,", units * sizeof(char16_t), message.payload.size());
}

void checkFields(const Encoding& message, std::size_t elements) {
  const ArrayType type = typeOf(message);
  const bool isCell = type == ArrayType::CELL;
  const bool isString = type == ArrayType::STRING;
  requireEqual("cells,", isCell ? elements : 0, message.cells.size());
  requireEqual("string lengths,", isString ? elements : 0, message.stringLengths.size());
  if (isString) return checkStrings(message);
  requireEqual("payload bytes,", elements * fixedElementSize(type), message.payload.size());
  if (type == ArrayType::LOGICAL) checkLogical(message);
}

// Everything is checked before anything is built, so that a message cannot make the decoder allocate more
// than it has brought itself. (What reading it has cost is what checkEncoding() is for.)
void check(const Encoding& message, std::size_t depth) {
  require(depth <= maxNestingDepth, "a nesting depth of at most", maxNestingDepth, depth);
  requireEqual("the end mark of the whole message,", depth == 1 ? endMark : 0, message.endMark);
  const std::size_t elementSize = storedElementSize(typeOf(message));
  require(elementSize != 0, "an array type of at most", static_cast<int>(ArrayType::CELL), message.type);
  const Dimensions& dimensions = message.dimensions;
  const auto elements = elementCount(dimensions, elementSize);
  if (!elements)
    throw SerializationException("Invalid array message: expected dimensions that memory can hold, got " +
                                 toString(dimensions));
  checkFields(message, *elements);
  for (const Encoding& cell : message.cells) check(cell, depth + 1);
}

Strings takeStrings(const Encoding& message) {
  Strings strings;
  strings.reserve(message.stringLengths.size());
  const std::uint8_t* text = message.payload.data();
  for (const std::size_t length : message.stringLengths) {
    auto& string = strings.emplace_back();
    if (length == 0) continue;
    string.emplace(length - 1, u'\0');
    if (string->empty()) continue;  // there may be no text at all
    std::memcpy(string->data(), text, string->size() * sizeof(char16_t));
    text += string->size() * sizeof(char16_t);
  }
  return strings;
}

bool canStay(std::span<const std::uint8_t> payload, const Lender& lender) {
  constexpr std::size_t alignment = alignof(std::max_align_t);
  return lender.owner && payload.size() >= leastLent && payload.size() >= lender.bytes / 2 &&
         reinterpret_cast<std::uintptr_t>(payload.data()) % alignment == 0;
}

Bytes takeBytes(const Encoding& message, std::size_t elements, const Lender& lender) {
  if (elements == 0) return {};
  const auto payload = message.payload;
  if (canStay(payload, lender)) return Bytes::lent(lender.owner, payload.data(), payload.size());
  return {payload.data(), payload.size()};
}

Array build(const Encoding& message, const Lender& lender);

Cells takeCells(const Encoding& message, const Lender& lender) {
  Cells cells;
  cells.reserve(message.cells.size());
  for (const Encoding& cell : message.cells) cells.push_back(build(cell, lender));
  return cells;
}

Array build(const Encoding& message, const Lender& lender) {
  const ArrayType type = typeOf(message);
  const Dimensions& dimensions = message.dimensions;
  if (type == ArrayType::DOUBLE && dimensions == Dimensions()) return {};
  const std::size_t elements = *elementCount(dimensions, storedElementSize(type));
  if (type == ArrayType::STRING) return BodyAccess::make(type, dimensions, elements, takeStrings(message));
  if (type == ArrayType::CELL)
    return BodyAccess::make(type, dimensions, elements, takeCells(message, lender));
  return BodyAccess::make(type, dimensions, elements, takeBytes(message, elements, lender));
}

}  // namespace

Array decode(const Encoding& message, const Lender& lender) {
  check(message, 1);
  return build(message, lender);
}

}  // namespace kestreldata::detail
