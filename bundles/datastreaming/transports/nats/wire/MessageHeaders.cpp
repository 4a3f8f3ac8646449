#include "transports/nats/wire/MessageHeaders.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace kestrel::streams {

using datastreaming::AttributeMap;
using datastreaming::AttributeValue;

namespace {

constexpr std::array<std::string_view, 3> eventNames{"gone", "abandoned",
                                                     "idle"};  // in the order of their kinds
constexpr std::chrono::milliseconds longestAge{std::chrono::years(100)};

bool plainInValue(unsigned char c) {
  return c > ' ' && c < 0x7f && c != '%';
}

bool plainInName(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

void escape(const std::string& text, bool (*plain)(unsigned char), std::string& to) {
  static constexpr char digits[] = "0123456789ABCDEF";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (plain(byte)) {
      to += c;
    } else {
      to += '%';
      to += digits[byte >> 4];
      to += digits[byte & 15];
    }
  }
}

std::optional<std::string> unescape(const char* text, std::size_t size) {
  std::string result;
  for (std::size_t i = 0; i < size; ++i) {
    if (text[i] != '%') {
      result += text[i];
      continue;
    }
    unsigned value = 0;
    if (i + 3 > size || std::from_chars(text + i + 1, text + i + 3, value, 16).ptr != text + i + 3) {
      return std::nullopt;
    }
    result += static_cast<char>(value);
    i += 2;
  }
  return result;
}

/// Reads one number and the '.' behind it.
template <class T>
bool takeNumber(const char*& at, const char* end, T& number, int base = 10) {
  const auto [next, error] = std::from_chars(at, end, number, base);
  if (error != std::errc() || next == end || *next != '.') return false;
  at = next + 1;
  return true;
}

char* putFlags(const Stamp& stamp, char* at, char* end) {
  if (stamp.chunked) *at++ = 'c';
  if (!stamp.last) *at++ = 'm';
  if (stamp.abandons) *at++ = 'a';
  if (stamp.whole == 0) return at;
  *at++ = 'w';
  return std::to_chars(at, end, stamp.whole).ptr;
}

/// Reads one flag, and the number behind it if it has one.
bool takeFlag(const char*& at, const char* end, Stamp& stamp) {
  switch (*at++) {
    case 'c':
      return stamp.chunked = true;
    case 'a':
      return stamp.abandons = true;
    case 'm':
      stamp.last = false;
      return true;
    case 'w': {
      const auto [next, error] = std::from_chars(at, end, stamp.whole);
      at = next;
      return error == std::errc() && stamp.whole > 0;
    }
    default:
      return false;
  }
}

/// Reads milliseconds up to the end.
bool readAge(const char* at, const char* end, std::int64_t& age) {
  const auto [next, error] = std::from_chars(at, end, age);
  return error == std::errc() && next == end && age >= 0 && age <= longestAge.count();
}

}  // namespace

std::string writeStamp(const Stamp& stamp) {
  char buffer[160];
  char* const end = buffer + sizeof buffer;
  char* at = buffer;
  const auto put = [&](std::uint64_t number, int base) {
    at = std::to_chars(at, end, number, base).ptr;
    *at++ = '.';
  };
  put(stamp.version, 10);
  put(stamp.producer, 16);
  put(stamp.sequence, 10);
  put(stamp.payload, 10);
  put(stamp.chunkIndex, 10);
  put(stamp.refusedBefore, 10);
  at = putFlags(stamp, at, end);
  if (stamp.age >= 0) {
    *at++ = '.';
    at = std::to_chars(at, end, stamp.age).ptr;
  }
  return {buffer, at};
}

std::optional<Stamp> readStamp(const char* text) {
  const char* at = text;
  const char* const end = text + std::strlen(text);
  Stamp stamp;
  if (!takeNumber(at, end, stamp.version) || stamp.version != Stamp::currentVersion ||
      !takeNumber(at, end, stamp.producer, 16) || !takeNumber(at, end, stamp.sequence) ||
      !takeNumber(at, end, stamp.payload) || !takeNumber(at, end, stamp.chunkIndex)) {
    return std::nullopt;
  }
  if (!takeNumber(at, end, stamp.refusedBefore)) return std::nullopt;
  while (at != end && *at != '.') {
    if (!takeFlag(at, end, stamp)) return std::nullopt;
  }
  if (at != end && !readAge(at + 1, end, stamp.age)) return std::nullopt;
  if (stamp.producer == 0 || stamp.sequence == 0 || stamp.payload == 0) return std::nullopt;
  return stamp;
}

std::string writeEvent(const ProducerEvent& event) {
  char buffer[96];
  char* const end = buffer + sizeof buffer;
  char* at = std::to_chars(buffer, end, event.producer, 16).ptr;
  *at++ = '.';
  at = std::to_chars(at, end, event.after).ptr;
  if (event.age) {
    *at++ = '.';
    at = std::to_chars(at, end, event.age->count()).ptr;
  }
  return std::string(eventNames[static_cast<std::size_t>(event.kind)]) + '.' + std::string(buffer, at);
}

std::optional<ProducerEvent> readEvent(const std::string& text) {
  const auto dot = text.find('.');
  const auto name = std::ranges::find(eventNames, std::string_view(text).substr(0, dot));
  if (dot == std::string::npos || name == eventNames.end()) return std::nullopt;
  ProducerEvent event;
  event.kind = static_cast<ProducerEvent::Kind>(name - eventNames.begin());
  const char* at = text.data() + dot + 1;
  const char* const end = text.data() + text.size();
  if (!takeNumber(at, end, event.producer, 16) || event.producer == 0) return std::nullopt;
  const auto [rest, error] = std::from_chars(at, end, event.after);
  if (error != std::errc()) return std::nullopt;
  if (rest == end) return event;
  std::int64_t age = 0;
  if (*rest != '.' || !readAge(rest + 1, end, age)) return std::nullopt;
  event.age = std::chrono::milliseconds(age);
  return event;
}

std::string writeAttribute(const AttributeValue& value) {
  if (const auto* number = std::get_if<long>(&value)) return "i" + std::to_string(*number);
  std::string text = "s";
  escape(std::get<std::string>(value), plainInValue, text);
  return text;
}

std::optional<AttributeValue> readAttribute(const std::string& text) {
  if (text.empty()) return std::nullopt;
  if (text.front() == 's') {
    auto plain = unescape(text.data() + 1, text.size() - 1);
    if (!plain) return std::nullopt;
    return AttributeValue(std::move(*plain));
  }
  long number = 0;
  const char* const end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data() + 1, end, number);
  if (text.front() != 'i' || error != std::errc() || at != end) return std::nullopt;
  return AttributeValue(number);
}

void HeaderWriter::add(const std::string& name, const std::string& value) {
  require(natsMsgHeader_Set(_message, name.c_str(), value.c_str()), "setting a header");
  _size += name.size() + value.size() + 4;  // ": " and the line's end
}

void HeaderWriter::add(const AttributeMap& attributes) {
  for (const auto& [key, value] : attributes) {
    std::string name = MessageHeaders::attributePrefix;
    escape(key, plainInName, name);
    add(name, writeAttribute(value));
  }
}

std::optional<AttributeMap> readAttributes(natsMsg* message) {
  const char** keys = nullptr;
  int count = 0;
  AttributeMap attributes;
  if (natsMsgHeader_Keys(message, &keys, &count) != NATS_OK) return attributes;
  const std::unique_ptr<const char*[], decltype([](const char** array) { std::free(array); })> owner(keys);
  const std::string& prefix = MessageHeaders::attributePrefix;
  for (int i = 0; i < count; ++i) {
    if (std::strncmp(keys[i], prefix.c_str(), prefix.size()) != 0) continue;
    const char* text = nullptr;
    if (natsMsgHeader_Get(message, keys[i], &text) != NATS_OK) return std::nullopt;
    auto key = unescape(keys[i] + prefix.size(), std::strlen(keys[i]) - prefix.size());
    auto value = readAttribute(text);
    if (!key || !value) return std::nullopt;
    attributes.emplace(std::move(*key), std::move(*value));
  }
  return attributes;
}

}  // namespace kestrel::streams
