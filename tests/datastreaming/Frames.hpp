#pragma once

#include <array>
#include <kestrel/datastreaming/Keys.hpp>
#include <string>

#include "sequencing/Frame.hpp"

namespace kestrel::streams {

/// A message is "<producer><sequence>", a piece "<producer><sequence>/<payload>.<index>", with "!" for the
/// last one and then options: r<n> n refused before it, x its producer abandons the open payload, b<n> size,
/// y<ms> age, w<ms> how long ago it can have come at the earliest, t a text where an integer belongs, n no
/// attributes, l large ones, u unknown version.
inline Frame frameOf(const std::string& word, TimePoint now) {
  using datastreaming::MessageAttributes;
  static constexpr std::array<std::uint8_t, 4096> bytes{};
  const auto has = [&](char option) { return word.find(option) != std::string::npos; };
  const auto number = [&](char option, std::uint64_t otherwise = 0) {
    return has(option) ? std::stoul(word.substr(word.find(option) + 1)) : otherwise;
  };
  Frame frame;
  frame.arrival = now;
  frame.earliest = now - std::chrono::milliseconds(number('w'));
  frame.size = number('b', 1);
  frame.data = bytes.data();
  Stamp& stamp = frame.stamp;
  stamp.version = has('u') ? 77 : Stamp::currentVersion;
  stamp.producer = static_cast<std::uint64_t>(word[0]);
  stamp.sequence = std::stoull(word.substr(1));
  stamp.payload = number('/', stamp.sequence);
  stamp.chunkIndex = static_cast<std::uint32_t>(number('.'));
  stamp.chunked = has('/');
  stamp.last = !stamp.chunked || has('!');
  stamp.refusedBefore = static_cast<std::uint32_t>(number('r'));
  stamp.abandons = has('x');
  if (has('y')) stamp.age = static_cast<std::int64_t>(number('y'));
  if (stamp.chunked && !has('n')) {
    frame.attributes = {{MessageAttributes::CompressionType, "chunk"},
                        {MessageAttributes::UnCompressedSize, stamp.last ? 0L : 99L}};
  }
  if (has('t')) frame.attributes[MessageAttributes::UnCompressedSize] = "99";
  if (has('l')) frame.attributes["large"] = std::string(6000, 'x');
  return frame;
}

}  // namespace kestrel::streams
