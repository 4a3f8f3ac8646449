#include "Encoding.hpp"

#include <algorithm>

#include "BodyAccess.hpp"
#include "Requirement.hpp"
#include "StructureCost.hpp"
#include "WireReader.hpp"

namespace kestreldata::detail {

namespace {

using Type = WireReader::Type;

Encoding read(std::span<const std::uint8_t> bytes, std::size_t depth, bool counted);

void takeNumber(Encoding& into, std::uint64_t field, std::uint64_t value) {
  if (field == fieldNumber(Tag::type)) into.type = static_cast<std::uint32_t>(value);
  if (field == fieldNumber(Tag::rows)) into.dimensions.rows = value;
  if (field == fieldNumber(Tag::columns)) into.dimensions.columns = value;
  if (field == fieldNumber(Tag::higherDimensions)) into.dimensions.higher.push_back(value);
  if (field == fieldNumber(Tag::stringLengths)) into.stringLengths.push_back(value);
}

template <class Numbers>
void takePacked(Numbers& into, std::span<const std::uint8_t> packed) {
  const auto count = std::ranges::count_if(packed, [](std::uint8_t byte) { return byte < 128; });
  into.reserve(into.size() + static_cast<std::size_t>(count));
  for (WireReader numbers(packed); !numbers.atEnd();) into.push_back(numbers.number());
}

/// How many cells to make room for before the first one, when so many bytes follow it.
std::size_t roomForCells(const Encoding& message, bool counted, std::size_t left) {
  constexpr std::size_t usual = 4;
  constexpr std::size_t most = maxStructureBytes / StructureCost::perArray;
  constexpr std::size_t shortest = 2;  // bytes: its tag and its length
  if (!counted) return usual;
  // Dimensions may still be replaced by others that are the ones that were counted.
  return std::min(
      {elementCount(message.dimensions, sizeof(Encoding)).value_or(0), 1 + left / shortest, most});
}

Encoding read(std::span<const std::uint8_t> bytes, std::size_t depth, bool counted) {
  require(depth <= maxNestingDepth, "a nesting depth of at most", maxNestingDepth, depth);
  Encoding encoding;
  for (WireReader in(bytes); !in.atEnd();) {
    const auto field = in.field();
    const bool isBytes = field.type == Type::bytes;
    if (field.type == Type::varint) takeNumber(encoding, field.number, field.value);
    if (field.type == Type::fixed32 && field.number == fieldNumber(Tag::endMark))
      encoding.endMark = static_cast<std::uint32_t>(field.value);
    if (!isBytes) continue;
    if (field.number == fieldNumber(Tag::payload)) encoding.payload = field.bytes;
    if (field.number == fieldNumber(Tag::higherDimensions))
      takePacked(encoding.dimensions.higher, field.bytes);
    if (field.number == fieldNumber(Tag::stringLengths)) takePacked(encoding.stringLengths, field.bytes);
    if (field.number == fieldNumber(Tag::cells)) {
      if (encoding.cells.empty()) encoding.cells.reserve(roomForCells(encoding, counted, in.left()));
      encoding.cells.push_back(read(field.bytes, depth + 1, counted));
    }
  }
  return encoding;
}

}  // namespace

Encoding readEncoding(std::span<const std::uint8_t> bytes, bool counted) {
  return read(bytes, 1, counted);
}

Encoding encodingOf(const KESTREL_Array& message, std::size_t depth) {
  require(depth <= maxNestingDepth, "a nesting depth of at most", maxNestingDepth, depth);
  const std::string& payload = message.payload();
  Encoding encoding{.type = message.type(),
                    .endMark = message.end_mark(),
                    .dimensions = {message.rows(), message.columns(), {}},
                    .payload = {reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size()},
                    .stringLengths = {message.string_lengths().begin(), message.string_lengths().end()},
                    .cells = {}};
  encoding.dimensions.higher.assign(message.higher_dimensions().begin(), message.higher_dimensions().end());
  encoding.cells.reserve(static_cast<std::size_t>(message.cells_size()));
  for (const KESTREL_Array& cell : message.cells()) encoding.cells.push_back(encodingOf(cell, depth + 1));
  return encoding;
}

}  // namespace kestreldata::detail
