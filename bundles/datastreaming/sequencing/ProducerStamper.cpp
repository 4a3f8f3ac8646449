#include "sequencing/ProducerStamper.hpp"

namespace kestrel::streams {

Stamp ProducerStamper::next(const ChunkMark& mark) {
  Stamp stamp;
  stamp.producer = _producer;
  stamp.sequence = ++_sequence;
  stamp.refusedBefore = _refusedRun;
  stamp.abandons = _abandons;
  stamp.chunked = mark.chunk;
  stamp.last = mark.last;
  if (!mark.chunk) {
    stamp.payload = ++_payloads;
    return stamp;
  }
  if (!_open) {
    _open = true;
    _broken = false;
    _payload = ++_payloads;
    _index = 0;
  }
  stamp.payload = _payload;
  stamp.chunkIndex = _index;
  return stamp;
}

void ProducerStamper::accepted(const Stamp& stamp) {
  _refusedRun = 0;
  _abandons = false;
  if (stamp.chunked) finishPiece(stamp);
}

bool ProducerStamper::refused(const Stamp& stamp, bool faulty) {
  ++_refusedRun;
  // A faulty mark may have been meant as a piece of the open payload, which then lacks it.
  const bool hits = stamp.chunked || (faulty && _open);
  if (!hits) return false;
  const bool breaks = payloadOpen();
  _broken = true;
  if (breaks) _abandons = true;
  if (stamp.chunked) finishPiece(stamp);
  return breaks;
}

void ProducerStamper::finishPiece(const Stamp& stamp) {
  ++_index;
  if (stamp.last) {
    _open = false;
    _broken = false;
  }
}

}  // namespace kestrel::streams
