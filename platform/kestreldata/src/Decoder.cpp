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

ArrayType typeOf(const KESTREL_Array& message) {
  return static_cast<ArrayType>(message.type());
}

Dimensions dimensionsOf(const KESTREL_Array& message) {
  return {message.rows(),
          message.columns(),
          {message.higher_dimensions().begin(), message.higher_dimensions().end()}};
}

std::size_t sizeOf(int protobufSize) {
  return static_cast<std::size_t>(protobufSize);
}

void checkLogical(const KESTREL_Array& message) {
  // A bool with any other representation than 0 and 1 must never be read.
  const auto bad = std::ranges::find_if(message.payload(), [](char byte) { return byte != 0 && byte != 1; });
  if (bad != message.payload().end())
    require(false, "logical elements of at most", 1, static_cast<unsigned char>(*bad));
}

void checkStrings(const KESTREL_Array& message) {
  const std::size_t available = message.payload().size() / sizeof(char16_t);
  std::size_t units = 0;
  for (const std::size_t length : message.string_lengths()) {
    if (length == 0) continue;
    require(length - 1 <= available - units, "strings that fit into code units,", available, length - 1);
    units += length - 1;
  }
  requireEqual("bytes of string text,", units * sizeof(char16_t), message.payload().size());
}

void checkFields(const KESTREL_Array& message, std::size_t elements) {
  const ArrayType type = typeOf(message);
  const bool isCell = type == ArrayType::CELL;
  const bool isString = type == ArrayType::STRING;
  requireEqual("cells,", isCell ? elements : 0, sizeOf(message.cells_size()));
  requireEqual("string lengths,", isString ? elements : 0, sizeOf(message.string_lengths_size()));
  if (isString) return checkStrings(message);
  requireEqual("payload bytes,", elements * fixedElementSize(type), message.payload().size());
  if (type == ArrayType::LOGICAL) checkLogical(message);
}

// Everything is checked before anything is built, so that a message cannot make the decoder allocate more
// than it has brought itself. (What parsing it has cost is what checkEncoding() is for.)
void check(const KESTREL_Array& message, std::size_t depth) {
  require(depth <= maxNestingDepth, "a nesting depth of at most", maxNestingDepth, depth);
  requireEqual("the end mark of the whole message,", depth == 1 ? endMark : 0, message.end_mark());
  const std::size_t elementSize = storedElementSize(typeOf(message));
  require(elementSize != 0, "an array type of at most", static_cast<int>(ArrayType::CELL), message.type());
  const Dimensions dimensions = dimensionsOf(message);
  const auto elements = elementCount(dimensions, elementSize);
  if (!elements)
    throw SerializationException("Invalid array message: expected dimensions that memory can hold, got " +
                                 toString(dimensions));
  checkFields(message, *elements);
  for (const KESTREL_Array& cell : message.cells()) check(cell, depth + 1);
}

Strings takeStrings(const KESTREL_Array& message) {
  Strings strings;
  strings.reserve(sizeOf(message.string_lengths_size()));
  const char* text = message.payload().data();
  for (const std::size_t length : message.string_lengths()) {
    auto& string = strings.emplace_back();
    if (length == 0) continue;
    string.emplace(length - 1, u'\0');
    std::memcpy(string->data(), text, string->size() * sizeof(char16_t));
    text += string->size() * sizeof(char16_t);
  }
  return strings;
}

Array build(KESTREL_Array& message);

// Each cell's message goes as soon as its array stands, so that never both of all cells are in memory.
Cells takeCells(KESTREL_Array& message) {
  auto& messages = *message.mutable_cells();
  Cells cells(sizeOf(messages.size()));
  for (std::size_t i = cells.size(); i > 0; --i) {
    const std::unique_ptr<KESTREL_Array> cell(messages.ReleaseLast());
    cells[i - 1] = build(*cell);
  }
  return cells;
}

Array build(KESTREL_Array& message) {
  const ArrayType type = typeOf(message);
  Dimensions dimensions = dimensionsOf(message);
  if (type == ArrayType::DOUBLE && dimensions == Dimensions()) return {};
  const std::size_t elements = *elementCount(dimensions, storedElementSize(type));
  if (type == ArrayType::STRING)
    return BodyAccess::make(type, std::move(dimensions), elements, takeStrings(message));
  if (type == ArrayType::CELL)
    return BodyAccess::make(type, std::move(dimensions), elements, takeCells(message));
  Bytes bytes;
  if (elements > 0) bytes = std::move(*message.mutable_payload());
  return BodyAccess::make(type, std::move(dimensions), elements, std::move(bytes));
}

}  // namespace

Array decode(KESTREL_Array& message) {
  check(message, 1);
  return build(message);
}

}  // namespace kestreldata::detail
