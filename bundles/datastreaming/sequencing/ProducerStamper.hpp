#pragma once

#include <cstdint>

#include "sequencing/ChunkMark.hpp"
#include "sequencing/Stamp.hpp"

namespace kestrel::streams {

/// Numbers the messages of one producer and knows which pieces share the fate of a refused one. Not
/// thread-safe.
class ProducerStamper {
 public:
  explicit ProducerStamper(std::uint64_t producer) : _producer(producer) {}

  /// Stamps the next message. Each call is followed by exactly one accepted() or refused() for its stamp.
  [[nodiscard]] Stamp next(const ChunkMark& mark);

  /// Whether this message belongs to a payload that an earlier refusal broke, so that it must not be sent.
  [[nodiscard]] bool broken(const Stamp& stamp) const { return stamp.chunked && _broken; }

  void accepted(const Stamp& stamp);

  /// Returns whether the refusal breaks a payload of which pieces were accepted before.
  bool refused(const Stamp& stamp, bool faulty = false);

  /// Whether pieces of an unfinished payload have been accepted.
  [[nodiscard]] bool payloadOpen() const { return _open && !_broken && _index > 0; }

 private:
  void finishPiece(const Stamp& stamp);

  const std::uint64_t _producer;
  std::uint64_t _sequence = 0;
  std::uint64_t _payloads = 0;
  std::uint64_t _payload = 0;  // the chunked payload in progress
  std::uint32_t _index = 0;    // of its next piece
  std::uint32_t _refusedRun = 0;
  bool _open = false;
  bool _broken = false;
  bool _abandons = false;
};

}  // namespace kestrel::streams
