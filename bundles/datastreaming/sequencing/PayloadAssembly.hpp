#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <kestrel/memory/Buffer.hpp>

#include "sequencing/Frame.hpp"

namespace kestrel::streams {

/// The pieces of one payload, joined as they come. Pieces that lie one behind the other where nobody writes
/// to them any more stay there; others are copied. A plain object, not thread-safe.
class PayloadAssembly {
 public:
  PayloadAssembly(std::uint64_t payload, std::uint64_t firstNumber)
      : _payload(payload), _firstNumber(firstNumber) {}

  /// Takes the next piece over. Throws std::bad_alloc; the payload cannot become whole then.
  void add(Frame& piece);

  /// The payload as one frame, which carries what its last piece carried.
  [[nodiscard]] Frame whole() &&;
  /// Settles the receipts of a payload that will not become whole.
  void settleAll();

  [[nodiscard]] std::uint64_t payload() const { return _payload; }
  /// The number of the message that was its first piece.
  [[nodiscard]] std::uint64_t firstNumber() const { return _firstNumber; }
  [[nodiscard]] std::uint32_t nextIndex() const { return static_cast<std::uint32_t>(_pieces); }
  [[nodiscard]] std::uint64_t pieces() const { return _pieces; }
  [[nodiscard]] std::uint64_t bytes() const { return _bytes; }
  /// When the newest piece came.
  [[nodiscard]] TimePoint heard() const { return _last.arrival; }
  void excuse(Clock::duration time) { _last.arrival += time; }
  /// The memory that it takes, by estimate: bytes, pieces, and what there is to it besides.
  [[nodiscard]] std::uint64_t cost() const;

 private:
  static constexpr std::uint64_t pieceCost = 128;
  static constexpr std::uint64_t payloadCost = 1024;

  [[nodiscard]] bool continues(const Frame& piece) const;
  [[nodiscard]] std::uint64_t memoryTaken() const;
  [[nodiscard]] static std::uint64_t likelySize(const Frame& first);
  [[nodiscard]] std::shared_ptr<memory::Buffer> makeRoom() const;
  void copy(const Frame& piece);

  const std::uint64_t _payload;
  const std::uint64_t _firstNumber;
  std::uint64_t _bytes = 0;
  std::uint64_t _likelySize = 0;          // of all, as the first piece tells
  const std::uint8_t* _begin = nullptr;   // of pieces that stay where they are
  memory::SharedBytes _owner;             // of those
  std::uint64_t _kept = 0;                // bytes that it keeps
  std::shared_ptr<memory::Buffer> _copy;  // of all, once one of them did not stay
  std::vector<std::unique_ptr<Receipt>> _receipts;
  std::uint64_t _pieces = 0;
  std::uint64_t _attributesCost = 0;  // of the newest piece
  Frame _last;                        // without its bytes
};

}  // namespace kestrel::streams
