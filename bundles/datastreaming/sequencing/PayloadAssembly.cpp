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

void PayloadAssembly::add(Frame& piece) {
  SpareBuffers::shared().prepare(*_buffer, _buffer->size() + piece.size);
  _buffer->append(piece.data, piece.size);
  if (piece.receipt) _receipts.push_back(std::move(piece.receipt));
  ++_pieces;
  _attributesCost = ByteBudget::costOf(0, piece.attributes);
  _last = std::move(piece);
  _last.owner.reset();
  _last.charge = {};
}

Frame PayloadAssembly::whole() && {
  Frame frame = std::move(_last);
  frame.data = _buffer->data();
  frame.size = _buffer->size();
  frame.messages = _pieces;
  frame.owner = std::move(_buffer);
  if (!_receipts.empty()) frame.receipt = std::make_unique<Receipts>(std::move(_receipts));
  return frame;
}

void PayloadAssembly::settleAll() {
  for (auto& receipt : _receipts) streams::settle(receipt);
}

}  // namespace kestrel::streams
