#include "kestreldata/EncodedArray.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <variant>

#include "BodyAccess.hpp"
#include "Layout.hpp"
#include "Wire.hpp"

namespace kestreldata {

using detail::Body;
using detail::BodyAccess;
using detail::Bytes;
using detail::Cells;
using detail::Strings;
using detail::Tag;

/// Writes messages one behind the other; whoever calls it has made sure of the room.
class EncodedArray::Writer {
 public:
  Writer(std::uint8_t* out, const Node* node) noexcept : _out(out), _node(node) {}

  void writeArray(const Array& array) noexcept {
    const Node& node = *_node++;
    writeNumber(Tag::type, static_cast<std::uint64_t>(array.getType()));
    const Body* const body = BodyAccess::body(array);
    if (body == nullptr) return;
    writeDimensions(body->dimensions);
    if (node.filler != 0) {
      writeStart(Tag::alignment, node.filler);
      std::memset(_out, 0, node.filler);
      _out += node.filler;
    }
    if (const auto* const bytes = std::get_if<Bytes>(&body->content)) {
      if (!bytes->empty()) writeStart(Tag::payload, bytes->size());
      append(bytes->data(), bytes->size());
    } else if (const auto* const strings = std::get_if<Strings>(&body->content)) {
      writeStrings(*strings);
    } else {
      writeCells(*std::get_if<Cells>(&body->content));
    }
  }

  void writeEndMark() noexcept {
    *_out++ = static_cast<std::uint8_t>(Tag::endMark);
    append(&detail::endMark, sizeof(detail::endMark));
  }

 private:
  void writeVarint(std::uint64_t number) noexcept {
    for (; number >= 128; number >>= 7) *_out++ = static_cast<std::uint8_t>(number | 128);
    *_out++ = static_cast<std::uint8_t>(number);
  }

  // Zero is what an absent number means.
  void writeNumber(Tag tag, std::uint64_t number) noexcept {
    if (number != 0) writeStart(tag, number);
  }

  void writeStart(Tag tag, std::uint64_t numberOrLength) noexcept {
    *_out++ = static_cast<std::uint8_t>(tag);
    writeVarint(numberOrLength);
  }

  void append(const void* data, std::size_t size) noexcept {
    if (size == 0) return;
    std::memcpy(_out, data, size);
    _out += size;
  }

  void writeDimensions(const detail::Dimensions& dimensions) noexcept {
    writeNumber(Tag::rows, dimensions.rows);
    writeNumber(Tag::columns, dimensions.columns);
    if (dimensions.higher.empty()) return;
    writeStart(Tag::higherDimensions, detail::packedSize(dimensions.higher));
    for (const std::size_t size : dimensions.higher) writeVarint(size);
  }

  void writeStrings(const Strings& strings) noexcept {
    if (strings.empty()) return;
    const std::size_t bytes = detail::textSize(strings);
    if (bytes != 0) writeStart(Tag::payload, bytes);
    for (const auto& string : strings)
      if (string) append(string->data(), string->size() * sizeof(char16_t));
    writeStart(Tag::stringLengths, detail::packedLengthsSize(strings));
    for (const auto& string : strings) writeVarint(detail::encodedLength(string));
  }

  void writeCells(const Cells& cells) noexcept {
    for (const Array& cell : cells) {
      writeStart(Tag::cells, _node->size);
      writeArray(cell);
    }
  }

  std::uint8_t* _out;
  const Node* _node;  // of the array that comes next
};

EncodedArray::EncodedArray(const Array& array) : _array(array) {
  Layout layout(array);
  _size = layout.size();
  _nodes = layout.takeNodes();
}

bool EncodedArray::SerializeToArray(void* data, int size) const noexcept {
  if (size < 0 || static_cast<std::size_t>(size) < _size) return false;
  Writer writer(static_cast<std::uint8_t*>(data), _nodes.data());
  writer.writeArray(_array);
  writer.writeEndMark();
  return true;
}

}  // namespace kestreldata
