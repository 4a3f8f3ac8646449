#pragma once

#include <cstdint>
#include <string>

namespace kestrel::streams {

/// What a producer writes beside each message for the sequencer of the receiving side; users never see it.
struct Stamp {
  static constexpr std::uint32_t currentVersion = 1;

  std::uint32_t version = currentVersion;
  std::uint64_t producer = 0;       ///< random, never 0
  std::uint64_t sequence = 0;       ///< counts every message of the producer from 1, refused ones too
  std::uint64_t payload = 0;        ///< counts the payloads of the producer from 1
  std::uint32_t chunkIndex = 0;     ///< place within the payload; 0 for a plain message
  std::uint32_t refusedBefore = 0;  ///< how many numbers just before this one went to refused messages
  bool chunked = false;             ///< a piece of a payload
  bool last = true;                 ///< its payload ends here
  bool abandons = false;            ///< the payload that was open has been given up by its producer
  std::int64_t age = -1;    ///< how many milliseconds ago the producer sent number 1; below 0: not told
  std::uint64_t whole = 0;  ///< in the first piece of a payload: how many bytes it has in all; 0: not told
};

/// A new random producer id.
[[nodiscard]] std::uint64_t makeProducerId();

/// Writes the identifier of a message, unique among all messages, over the text given; it reuses its memory.
void writeMessageId(const Stamp& stamp, std::string& text);

}  // namespace kestrel::streams
