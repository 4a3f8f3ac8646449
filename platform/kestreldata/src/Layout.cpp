#include "Layout.hpp"

#include <cstddef>
#include <string>
#include <variant>

#include "BodyAccess.hpp"
#include "Wire.hpp"
#include "kestreldata/Exceptions.hpp"
#include "kestreldata/SerializationContext.hpp"

namespace kestreldata {

namespace {

using detail::Body;
using detail::BodyAccess;
using detail::Bytes;
using detail::Cells;
using detail::Strings;

// A copy to an address that lies 1 to 15 bytes further on in its page than the source is many times slower
// than others, and what stands before a payload would bring that about.
constexpr std::size_t payloadAlignment = 64;
constexpr std::size_t smallestAlignedPayload = 4096;

// Arrays in one message, cells included.
constexpr std::size_t usualNodes = 8;

// A cell's tag and its length.
constexpr std::size_t leastFrameSize = 2;

std::size_t numberFieldSize(std::uint64_t number) {
  return number == 0 ? 0 : 1 + detail::varintSize(number);
}

std::size_t optionalFieldSize(std::size_t bytes) {
  return bytes == 0 ? 0 : detail::lengthDelimitedSize(bytes);
}

// Everything that stands before the elements, fillers apart.
std::size_t headerSize(const Array& array) {
  const std::size_t type = numberFieldSize(static_cast<std::uint64_t>(array.getType()));
  const Body* const body = BodyAccess::body(array);
  if (body == nullptr) return type;
  const auto& dimensions = body->dimensions;
  return type + numberFieldSize(dimensions.rows) + numberFieldSize(dimensions.columns) +
         optionalFieldSize(detail::packedSize(dimensions.higher));
}

const Bytes* bytesOf(const Array& array) {
  const Body* const body = BodyAccess::body(array);
  return body == nullptr ? nullptr : std::get_if<Bytes>(&body->content);
}

const Cells* cellsOf(const Array& array) {
  const Body* const body = BodyAccess::body(array);
  return body == nullptr ? nullptr : std::get_if<Cells>(&body->content);
}

const Strings* stringsOf(const Array& array) {
  const Body* const body = BodyAccess::body(array);
  return body == nullptr ? nullptr : std::get_if<Strings>(&body->content);
}

}  // namespace

std::size_t detail::packedSize(const std::vector<std::size_t>& numbers) noexcept {
  std::size_t bytes = 0;
  for (const std::size_t number : numbers) bytes += varintSize(number);
  return bytes;
}

std::size_t detail::packedLengthsSize(const Strings& strings) noexcept {
  std::size_t bytes = 0;
  for (const auto& string : strings) bytes += varintSize(encodedLength(string));
  return bytes;
}

std::size_t detail::textSize(const Strings& strings) noexcept {
  std::size_t bytes = 0;
  for (const auto& string : strings) bytes += string ? string->size() * sizeof(char16_t) : 0;
  return bytes;
}

EncodedArray::Layout::Layout(const Array& array) {
  _nodes.reserve(usualNodes);
  examine(array, 1);
  measure(array);
  if (_hasFillers) {
    _cursor = 0;
    place(array, 0);
    _cursor = 0;
    measure(array);
  }
  _nodes.front().size += detail::endMarkFieldSize;
  _counted = 0;
  count(size());
}

void EncodedArray::Layout::count(std::size_t bytes) {
  // Never overflows: no array takes up more than half of what the sum can count, and the sum was small
  // before.
  _counted += bytes;
  if (_counted > detail::maxEncodedBytes)
    throw SerializationException("Expected an array of at most " + std::to_string(detail::maxEncodedBytes) +
                                 " bytes encoded, got a larger one");
}

// Lists the arrays, and refuses what is too deep or too large before anything else is done with it.
void EncodedArray::Layout::examine(const Array& array, std::size_t depth) {
  if (depth > maxNestingDepth)
    throw SerializationException("Expected cells nested at most " + std::to_string(maxNestingDepth) +
                                 " deep, got a deeper array");
  if (depth > 1) _structure.addArrays(1);
  if (const Body* const body = BodyAccess::body(array))
    _structure.addHigherDimensions(body->dimensions.higher.size());
  Node node;
  if (const Bytes* const bytes = bytesOf(array)) {
    count(bytes->size());
    if (bytes->size() >= smallestAlignedPayload) node.filler = payloadAlignment;
  } else if (const Strings* const strings = stringsOf(array)) {
    _structure.addStrings(strings->size());
    for (const auto& string : *strings) count(1 + (string ? string->size() * sizeof(char16_t) : 0));
  }
  count(leastFrameSize + headerSize(array));
  _hasFillers |= node.filler != 0;
  _nodes.push_back(node);
  if (const Cells* const cells = cellsOf(array))
    for (const Array& cell : *cells) examine(cell, depth + 1);
}

// Fills in the sizes of the arrays that begin at the cursor, with the fillers that they have.
std::size_t EncodedArray::Layout::measure(const Array& array) {
  const std::size_t index = _cursor++;
  std::size_t size = headerSize(array) + optionalFieldSize(_nodes[index].filler);
  if (const Bytes* const bytes = bytesOf(array)) {
    size += optionalFieldSize(bytes->size());
  } else if (const Strings* const strings = stringsOf(array)) {
    size += optionalFieldSize(detail::textSize(*strings));
    size += optionalFieldSize(detail::packedLengthsSize(*strings));
  } else if (const Cells* const cells = cellsOf(array)) {
    for (const Array& cell : *cells) size += detail::lengthDelimitedSize(measure(cell));
  }
  // Sizes that do not fit are refused in the end, when all are added up.
  _nodes[index].size = static_cast<std::uint32_t>(size);
  return size;
}

// Shortens the fillers so that their payloads begin at multiples of the alignment. Takes the sizes as
// measured with full fillers and returns the new one of the array, whose message begins at that place of the
// encoding. (Where a length needs a byte less in the end, what follows it moves by one byte; that payload is
// then merely less well placed.)
std::size_t EncodedArray::Layout::place(const Array& array, std::size_t start) {
  Node& node = _nodes[_cursor++];
  if (node.filler != 0) {
    const std::size_t payloadStart = start + node.size - bytesOf(array)->size();
    const std::size_t excess = payloadStart % payloadAlignment;
    node.filler -= static_cast<std::uint32_t>(excess);
    return node.size - excess;
  }
  const Cells* const cells = cellsOf(array);
  if (cells == nullptr) return node.size;
  std::size_t position = start + headerSize(array);
  for (const Array& cell : *cells) {
    position += detail::lengthDelimitedSize(_nodes[_cursor].size) - _nodes[_cursor].size;
    position += place(cell, position);
  }
  return position - start;
}

}  // namespace kestreldata
