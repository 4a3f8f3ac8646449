#include "Encoder.hpp"

#include <google/protobuf/io/coded_stream.h>

#include <bit>
#include <cstddef>
#include <limits>
#include <memory>
#include <string>
#include <variant>

#include "BodyAccess.hpp"
#include "Wire.hpp"
#include "kestreldata/Exceptions.hpp"

namespace kestreldata::detail {

static_assert(std::endian::native == std::endian::little, "payloads travel as they lie in memory");

namespace {

using google::protobuf::io::CodedOutputStream;

// Copies to an address that lies 1 to 15 bytes further on in its page than the source are many times slower
// than others, and what stands before a payload would bring that about.
constexpr std::size_t payloadAlignment = 64;
constexpr std::size_t smallestAlignedPayload = 4096;

// Bounds for the fields of one message other than its elements.
constexpr std::size_t leastHeader = 4;
constexpr std::size_t greatestHeader = 128;
constexpr std::size_t greatestNumber = 10;

struct Survey {
  std::size_t atLeast = 0;  // bytes
  std::size_t atMost = 0;
  bool hasAlignedPayload = false;
};

[[noreturn]] void refuseSize() {
  throw SerializationException("Expected an array of at most " + std::to_string(maxEncodedBytes) +
                               " bytes encoded, got a larger one");
}

void add(Survey& survey, std::size_t atLeast, std::size_t atMost) {
  survey.atLeast += atLeast;
  survey.atMost += atMost;
  // Each addition is far below what overflows, and none follows one that went past the limit.
  if (survey.atLeast > maxEncodedBytes) refuseSize();
}

// Finds out what there is to encode, before anything is built.
void examine(const Array& array, std::size_t depth, Survey& survey) {
  if (depth > maxNestingDepth)
    throw SerializationException("Expected cells nested at most " + std::to_string(maxNestingDepth) +
                                 " deep, got a deeper array");
  add(survey, leastHeader, greatestHeader);
  const Body* const body = BodyAccess::body(array);
  if (body == nullptr) return;
  add(survey, 0, body->dimensions.higher.size() * greatestNumber);
  if (const auto* bytes = std::get_if<Bytes>(&body->content)) {
    add(survey, bytes->size(), bytes->size());
    survey.hasAlignedPayload |= bytes->size() >= smallestAlignedPayload;
  } else if (const auto* strings = std::get_if<Strings>(&body->content)) {
    for (const auto& string : *strings) {
      const std::size_t bytes = string ? string->size() * sizeof(char16_t) : 0;
      add(survey, bytes + 1, bytes + greatestNumber);
    }
  } else {
    for (const Array& cell : *std::get_if<Cells>(&body->content)) examine(cell, depth + 1, survey);
  }
}

void fillStrings(KESTREL_Array& message, const Strings& strings) {
  std::size_t units = 0;
  for (const auto& string : strings) units += string ? string->size() : 0;
  message.mutable_string_lengths()->Reserve(static_cast<int>(strings.size()));
  std::string* const payload = units > 0 ? message.mutable_payload() : nullptr;
  if (payload != nullptr) payload->reserve(units * sizeof(char16_t));
  for (const auto& string : strings) {
    message.add_string_lengths(string ? string->size() + 1 : 0);
    if (string && !string->empty())
      payload->append(reinterpret_cast<const char*>(string->data()), string->size() * sizeof(char16_t));
  }
}

void fill(KESTREL_Array& message, const Array& array) {
  const Body* const body = BodyAccess::body(array);
  message.set_type(static_cast<std::uint32_t>(array.getType()));
  if (body == nullptr) return;
  message.set_rows(body->dimensions.rows);
  message.set_columns(body->dimensions.columns);
  for (const std::size_t size : body->dimensions.higher) message.add_higher_dimensions(size);
  if (const auto* bytes = std::get_if<Bytes>(&body->content)) {
    // The greatest filler that place() may need. It goes in first: nothing may throw between a payload that
    // is lent and the next look of the release at it.
    if (bytes->size() >= smallestAlignedPayload) message.mutable_alignment()->resize(payloadAlignment);
    // Lent: serialising only reads it, and MessageRelease takes it back before the message would delete it.
    if (!bytes->empty()) message.set_allocated_payload(const_cast<Bytes*>(bytes));
  } else if (const auto* strings = std::get_if<Strings>(&body->content)) {
    fillStrings(message, *strings);
  } else {
    const auto& cells = *std::get_if<Cells>(&body->content);
    message.mutable_cells()->Reserve(static_cast<int>(cells.size()));
    for (const Array& cell : cells) fill(*message.add_cells(), cell);
  }
}

std::size_t fieldSize(const KESTREL_Array& cell) {
  const auto size = static_cast<std::uint32_t>(cell.GetCachedSize());
  return 1 + CodedOutputStream::VarintSize32(size) + size;
}

// Shortens fillers so that their payloads begin at multiples of the alignment. The sizes of all messages must
// be cached with full fillers, and the message's content begins at that place of the encoding; returns by how
// much it became shorter. (A size that needs a byte less once it is shorter moves what it stands before by
// one byte; the payload is then merely less well placed.)
std::size_t place(KESTREL_Array& message, std::size_t start) {
  std::size_t position = start + static_cast<std::size_t>(message.GetCachedSize());
  if (!message.alignment().empty()) {
    const std::size_t excess = (position - message.payload().size()) % payloadAlignment;
    message.mutable_alignment()->resize(payloadAlignment - excess);
    return excess;
  }
  for (const auto& cell : message.cells()) position -= fieldSize(cell);
  std::size_t saved = 0;
  for (auto& cell : *message.mutable_cells()) {
    position += fieldSize(cell);
    saved += place(cell, position - static_cast<std::size_t>(cell.GetCachedSize()) - saved);
  }
  return saved;
}

}  // namespace

EncodedArray encode(const Array& array) {
  Survey survey;
  examine(array, 1, survey);

  auto* const message = new KESTREL_Array;
  EncodedArray encoded(message, MessageRelease(array));
  fill(*message, array);
  if (survey.hasAlignedPayload || survey.atMost > maxEncodedBytes) {
    if (message->ByteSizeLong() > maxEncodedBytes - sizeof(endMark) - 1) refuseSize();
    place(*message, 0);
  }
  message->set_end_mark(endMark);
  return encoded;
}

}  // namespace kestreldata::detail
