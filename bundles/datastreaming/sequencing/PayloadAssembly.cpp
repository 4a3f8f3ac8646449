#include "sequencing/PayloadAssembly.hpp"

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

void PayloadAssembly::copy(const Frame& piece) {
  auto copy = _copy ? _copy : std::make_shared<memory::Buffer>();
  if (_owner) copy->append(_begin, _bytes);
  copy->append(piece.data, piece.size);
  _copy = std::move(copy);
  _owner.reset();
}

void PayloadAssembly::add(Frame& piece) {
  if (_pieces == 0) {
    auto frozen = memory::ownerOf(piece.data, piece.size);
    _owner = std::move(frozen.owner);
    _kept = frozen.size;
    _begin = piece.data;
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
    _copy->freeze();
    frame.data = _copy->data();
    frame.owner = std::move(_copy);
  } else {
    frame.data = _begin;
    frame.owner = std::move(_owner);
  }
  if (!_receipts.empty()) frame.receipt = std::make_unique<Receipts>(std::move(_receipts));
  return frame;
}

void PayloadAssembly::settleAll() {
  for (auto& receipt : _receipts) streams::settle(receipt);
}

}  // namespace kestrel::streams
