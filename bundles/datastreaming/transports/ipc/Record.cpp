#include "transports/ipc/Record.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "transports/ipc/CrossingBlocks.hpp"

namespace kestrel::streams {

using datastreaming::AttributeMap;
using datastreaming::AttributeValue;

static_assert(std::endian::native == std::endian::little, "records are written as they lie in memory");

namespace {

enum Kind : std::uint32_t { hello = 1, message = 2, event = 3 };
enum Flag : std::uint32_t { chunked = 1, last = 2, abandons = 4, inBlock = 8 };
enum ValueKind : std::uint8_t { integer = 'i', text = 's' };

constexpr std::uint32_t magic = 0x4350494b;  // "KIPC"
constexpr std::uint32_t version = 1;

struct Head {
  std::uint32_t length;
  std::uint32_t kind;
};
struct HelloBody {
  std::uint32_t magic;
  std::uint32_t version;
};
struct EventBody {
  std::uint64_t producer;
  std::uint64_t after;
  std::uint64_t news;
};
struct MessageBody {
  std::uint64_t producer;
  std::uint64_t sequence;
  std::uint64_t payload;
  std::uint64_t whole;
  std::uint32_t chunkIndex;
  std::uint32_t refusedBefore;
  std::uint32_t flags;
  std::uint32_t attributesSize;
  std::uint64_t attributesInBlock;
  std::uint64_t offset;
  std::uint64_t size;
};

/// Writes into room that has been measured before.
class Pen {
 public:
  explicit Pen(std::uint8_t* at) : _at(at) {}
  template <class T>
  requires std::is_trivially_copyable_v<T>
  void put(const T& value) { put(&value, sizeof value); }
  void put(const void* bytes, std::size_t size) {
    if (size > 0) std::memcpy(_at, bytes, size);
    _at += size;
  }
  void put(const std::string& text) {
    put(static_cast<std::uint32_t>(text.size()));
    put(text.data(), text.size());
  }

 private:
  std::uint8_t* _at;
};

/// Takes values off the front of bytes; once there are too few it gives nothing but zeros.
class Eye {
 public:
  explicit Eye(std::span<const std::uint8_t> bytes) : _rest(bytes) {}
  template <class T>
  requires std::is_trivially_copyable_v<T>
  [[nodiscard]] T take() {
    T value{};
    const auto bytes = takeBytes(sizeof value);
    if (!bytes.empty()) std::memcpy(&value, bytes.data(), sizeof value);
    return value;
  }
  [[nodiscard]] std::span<const std::uint8_t> takeBytes(std::uint64_t size) {
    if (size > _rest.size()) _failed = true;
    if (_failed) return {};
    const auto taken = _rest.first(size);
    _rest = _rest.subspan(size);
    return taken;
  }
  [[nodiscard]] std::string takeText() {
    const auto bytes = takeBytes(take<std::uint32_t>());
    return {bytes.begin(), bytes.end()};
  }
  [[nodiscard]] bool failed() const { return _failed; }
  [[nodiscard]] bool atEnd() const { return !_failed && _rest.empty(); }

 private:
  std::span<const std::uint8_t> _rest;
  bool _failed = false;
};

std::size_t sizeOf(const AttributeMap& attributes) {
  std::size_t size = 0;
  for (const auto& [key, value] : attributes) {
    const auto* const words = std::get_if<std::string>(&value);
    size += sizeof(std::uint32_t) + key.size() + sizeof(std::uint8_t);
    size += words != nullptr ? sizeof(std::uint32_t) + words->size() : sizeof(std::int64_t);
  }
  return size;
}

void write(const AttributeMap& attributes, Pen& pen) {
  for (const auto& [key, value] : attributes) {
    pen.put(key);
    if (const auto* const words = std::get_if<std::string>(&value)) {
      pen.put(ValueKind::text);
      pen.put(*words);
    } else {
      pen.put(ValueKind::integer);
      pen.put(static_cast<std::int64_t>(std::get<long>(value)));
    }
  }
}

/// How many bytes they take. Throws where those are too many.
std::size_t measure(const AttributeMap& attributes) {
  const std::size_t size = sizeOf(attributes);
  if (size <= mostAttributes) return size;
  throw std::runtime_error("its attributes take " + std::to_string(size) + " bytes, and " +
                           std::to_string(mostAttributes) + " may go to another process");
}

std::uint32_t flagsOf(const Stamp& stamp) {
  return (stamp.chunked ? Flag::chunked : 0U) | (stamp.last ? Flag::last : 0U) |
         (stamp.abandons ? Flag::abandons : 0U);
}

MessageBody bodyOf(const Stamp& stamp) {
  MessageBody body{};
  body.producer = stamp.producer;
  body.sequence = stamp.sequence;
  body.payload = stamp.payload;
  body.whole = stamp.whole;
  body.chunkIndex = stamp.chunkIndex;
  body.refusedBefore = stamp.refusedBefore;
  body.flags = flagsOf(stamp);
  return body;
}

}  // namespace

void OutgoingRecord::make(std::size_t size) {
  _bytes = std::make_unique_for_overwrite<std::uint8_t[]>(size);
  _size = size;
}

std::shared_ptr<OutgoingRecord> OutgoingRecord::hello() {
  auto record = std::make_shared<OutgoingRecord>();
  record->make(sizeof(Head) + sizeof(HelloBody));
  record->_isHello = true;
  Pen pen(record->_bytes.get());
  pen.put(Head{static_cast<std::uint32_t>(record->_size), Kind::hello});
  pen.put(HelloBody{magic, version});
  return record;
}

std::shared_ptr<OutgoingRecord> OutgoingRecord::event(const ProducerEvent& event) {
  auto record = std::make_shared<OutgoingRecord>();
  record->make(sizeof(Head) + sizeof(EventBody));
  Pen pen(record->_bytes.get());
  pen.put(Head{static_cast<std::uint32_t>(record->_size), Kind::event});
  pen.put(EventBody{event.producer, event.after, static_cast<std::uint64_t>(event.kind)});
  return record;
}

std::shared_ptr<OutgoingRecord> OutgoingRecord::message(const Stamp& stamp, const std::uint8_t* data,
                                                        std::uint64_t size, const AttributeMap& attributes,
                                                        bool shares, std::uint64_t cost) {
  auto record = std::make_shared<OutgoingRecord>();
  record->_isMessage = true;
  record->_cost = cost;
  MessageBody body = bodyOf(stamp);
  body.size = size;
  const std::size_t attributesSize = measure(attributes);
  const bool apart = attributesSize > longestAttributes;
  if (apart || size >= memory::leastMappable) {
    body.flags |= Flag::inBlock;
    body.attributesInBlock = apart ? attributesSize : 0;
    record->keep(data, size, apart ? &attributes : nullptr, body.attributesInBlock, shares);
    const auto offset = record->_content.data() - record->_kept.owner.get();
    body.offset = record->needsCopy() ? 0 : static_cast<std::uint64_t>(offset);
  }
  body.attributesSize = apart ? 0 : static_cast<std::uint32_t>(attributesSize);
  const std::uint64_t here = record->goesInBlock() ? 0 : size;
  record->make(sizeof(Head) + sizeof body + body.attributesSize + here);
  Pen pen(record->_bytes.get());
  pen.put(Head{static_cast<std::uint32_t>(record->_size), Kind::message});
  pen.put(body);
  if (!apart) write(attributes, pen);
  pen.put(data, here);
  return record;
}

void OutgoingRecord::keep(const std::uint8_t* data, std::uint64_t size, const AttributeMap* attributes,
                          std::uint64_t attributesSize, bool shares) {
  if (shares && attributes == nullptr) _kept = memory::ownerOf(data, size);
  if (!_kept.owner) {
    auto room = memory::Buffer::toSend(std::max(attributesSize + size, memory::leastMappable));
    Pen pen(room.data());
    if (attributes != nullptr) write(*attributes, pen);
    pen.put(data, size);
    data = room.data();
    room.freeze();
    _kept = memory::ownerOf(data, 1);
    if (!_kept.owner) throw std::bad_alloc();
  }
  _content = {data, attributesSize + size};
}

memory::Frozen OutgoingRecord::block(std::size_t copies) {
  if (!needsCopy()) return _kept;
  const callbacks::MutexLock lock(_mutex);
  if (auto known = _copy.lock()) return {std::move(known), _content.size(), _copyDescriptor};
  auto made = copyToCross(_content, copies);
  _copy = made.owner;
  _copyDescriptor = made.descriptor;
  return made;
}

namespace {

std::optional<IncomingRecord> takeEvent(Eye& eye) {
  const auto body = eye.take<EventBody>();
  if (!eye.atEnd() || body.producer == 0 || body.news > 2) return std::nullopt;
  return ProducerEvent{static_cast<ProducerEvent::Kind>(body.news), body.producer, body.after};
}

std::optional<IncomingRecord> takeHello(Eye& eye) {
  const auto body = eye.take<HelloBody>();
  if (!eye.atEnd() || body.magic != magic || body.version != version) return std::nullopt;
  return HelloRecord{};
}

/// Nothing if it is none of a producer.
std::optional<Stamp> stampOf(const MessageBody& body) {
  Stamp stamp;
  stamp.producer = body.producer;
  stamp.sequence = body.sequence;
  stamp.payload = body.payload;
  stamp.whole = body.whole;
  stamp.chunkIndex = body.chunkIndex;
  stamp.refusedBefore = body.refusedBefore;
  stamp.chunked = (body.flags & Flag::chunked) != 0;
  stamp.last = (body.flags & Flag::last) != 0;
  stamp.abandons = (body.flags & Flag::abandons) != 0;
  if (stamp.producer == 0 || stamp.sequence == 0 || stamp.payload == 0) return std::nullopt;
  return stamp;
}

std::optional<IncomingRecord> takeMessage(Eye& eye) {
  const auto body = eye.take<MessageBody>();
  const auto stamp = stampOf(body);
  constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
  const bool fits = body.offset <= most && body.size <= most && body.attributesInBlock <= mostAttributes;
  if (!stamp || !fits || body.flags > (Flag::inBlock * 2 - 1)) return std::nullopt;
  MessageRecord record;
  record.stamp = *stamp;
  record.inBlock = (body.flags & Flag::inBlock) != 0;
  record.offset = body.offset;
  record.size = body.size;
  record.attributesInBlock = body.attributesInBlock;
  record.attributes = eye.takeBytes(body.attributesSize);
  if (!record.inBlock) record.data = eye.takeBytes(body.size);
  if (!eye.atEnd()) return std::nullopt;
  return record;
}

}  // namespace

std::optional<IncomingRecord> takeRecord(std::span<const std::uint8_t>& packet) {
  Eye head(packet);
  const auto [length, kind] = head.take<Head>();
  if (head.failed() || length < sizeof(Head) || length > packet.size()) return std::nullopt;
  Eye body(packet.subspan(sizeof(Head), length - sizeof(Head)));
  packet = packet.subspan(length);
  switch (kind) {
    case Kind::hello:
      return takeHello(body);
    case Kind::event:
      return takeEvent(body);
    case Kind::message:
      return takeMessage(body);
    default:
      return std::nullopt;
  }
}

std::optional<AttributeMap> readAttributes(std::span<const std::uint8_t> bytes) {
  AttributeMap attributes;
  Eye eye(bytes);
  while (!eye.atEnd()) {
    std::string key = eye.takeText();
    const auto kind = eye.take<std::uint8_t>();
    if (kind == ValueKind::text) {
      attributes[std::move(key)] = eye.takeText();
    } else if (kind == ValueKind::integer) {
      attributes[std::move(key)] = static_cast<long>(eye.take<std::int64_t>());
    } else {
      return std::nullopt;
    }
    if (eye.failed()) return std::nullopt;
  }
  return attributes;
}

}  // namespace kestrel::streams
