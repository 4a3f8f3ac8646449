#include "sequencing/PayloadAssembly.hpp"

#include <algorithm>
#include <new>
#include <utility>

namespace kestrel::streams {

namespace {

/// Those of all pieces of a payload.
class Receipts final : public Receipt {
 public:
  explicit Receipts(std::vector<std::unique_ptr<Receipt>> receipts) : _receipts(std::move(receipts)) {}
  void settle() noexcept override {
    for (auto& receipt : _receipts) receipt->settle();
  }

 private:
  const std::vector<std::unique_ptr<Receipt>> _receipts;
};

}  // namespace

bool PayloadAssembly::continues(const Frame& piece) const {
  if (!_owner || piece.data != _begin + _bytes) return false;
  return memory::ownerOf(piece.data, piece.size).owner == _owner;
}

/// How long the payload is, as its first piece tells. Anybody may tell anything, so a small piece is not
/// believed, and none beyond so many of its size: memory that is not written to costs little, but not
/// nothing.
std::uint64_t PayloadAssembly::likelySize(const Frame& first) {
  constexpr std::uint64_t leastBelieved = 256 << 10, mostBelieved = 1 << 30, mostPieces = 256;
  if (first.size < leastBelieved) return 0;
  return std::min({first.stamp.whole, mostPieces * first.size, mostBelieved});
}

void PayloadAssembly::copy(const Frame& piece) {
  auto copy = _copy ? _copy : makeRoom();
  if (_owner) copy->append(_begin, _bytes);
  copy->append(piece.data, piece.size);
  _copy = std::move(copy);
  _owner.reset();
}

std::shared_ptr<memory::Buffer> PayloadAssembly::makeRoom() const {
  auto room = std::make_shared<memory::Buffer>();
  try {
    room->reserve(_likelySize);
  } catch (const std::bad_alloc&) {  // then it grows with the pieces
  }
  return room;
}

void PayloadAssembly::add(Frame& piece) {
  if (_pieces == 0) {
    auto frozen = memory::ownerOf(piece.data, piece.size);
    _owner = std::move(frozen.owner);
    _kept = frozen.size;
    _begin = piece.data;
    _likelySize = likelySize(piece);
  }
  if (!continues(piece)) copy(piece);
  _bytes += piece.size;
  if (piece.receipt) _receipts.push_back(std::move(piece.receipt));
  ++_pieces;
  _attributesCost = ByteBudget::costOf(0, piece.attributes);
  _last = std::move(piece);
  _last.owner.reset();
  _last.charge = {};
}

Frame PayloadAssembly::whole() && {
  Frame frame = std::move(_last);
  frame.size = _bytes;
  frame.messages = _pieces;
  if (_copy) {
    // Frozen, they may be held on to by whoever reads them; so not if there is much more behind them.
    if (_copy->capacity() / 2 <= _bytes) _copy->freeze();
    frame.data = _copy->data();
    frame.owner = std::move(_copy);
  } else {
    frame.data = _begin;
    frame.owner = std::move(_owner);
  }
  if (!_receipts.empty()) frame.receipt = std::make_unique<Receipts>(std::move(_receipts));
  return frame;
}

std::uint64_t PayloadAssembly::cost() const {
  return std::max(_bytes, memoryTaken()) + pieceCost * _pieces + _attributesCost + payloadCost;
}

std::uint64_t PayloadAssembly::memoryTaken() const {
  constexpr std::uint64_t largePage = 2 << 20;  // which is taken whole by the first byte in it
  if (_owner) return _kept;
  if (!_copy || _copy->capacity() < largePage) return 0;
  return std::min<std::uint64_t>(_copy->capacity(), (_bytes + largePage - 1) / largePage * largePage);
}

void PayloadAssembly::settleAll() {
  for (auto& receipt : _receipts) streams::settle(receipt);
}

}  // namespace kestrel::streams
