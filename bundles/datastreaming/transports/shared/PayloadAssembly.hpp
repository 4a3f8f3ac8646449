#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "transports/shared/Frame.hpp"
#include "transports/shared/SpareBuffers.hpp"

namespace kestrel::streams {

/// The pieces of one payload, joined as they come. A plain object, not thread-safe.
class PayloadAssembly {
 public:
  explicit PayloadAssembly(std::uint64_t payload)
      : _payload(payload), _buffer(SpareBuffers::shared().take()) {}

  /// Takes the next piece over. Throws std::bad_alloc; the payload cannot become whole then.
  void add(Frame& piece);

  /// The payload as one frame, which carries what its last piece carried.
  [[nodiscard]] Frame whole() &&;
  /// Settles the receipts of a payload that will not become whole.
  void settleAll();

  [[nodiscard]] std::uint64_t payload() const { return _payload; }
  [[nodiscard]] std::uint32_t nextIndex() const { return static_cast<std::uint32_t>(_pieces); }
  [[nodiscard]] std::uint64_t pieces() const { return _pieces; }
  [[nodiscard]] std::uint64_t bytes() const { return _buffer->size(); }
  /// When the newest piece came.
  [[nodiscard]] TimePoint heard() const { return _last.arrival; }
  void excuse(Clock::duration time) { _last.arrival += time; }
  /// The memory that it takes, by estimate: bytes, pieces, and what there is to it besides.
  [[nodiscard]] std::uint64_t cost() const { return bytes() + pieceCost * _pieces + payloadCost; }

 private:
  static constexpr std::uint64_t pieceCost = 128;
  static constexpr std::uint64_t payloadCost = 1024;

  const std::uint64_t _payload;
  std::shared_ptr<PayloadBuffer> _buffer;
  std::vector<std::unique_ptr<Receipt>> _receipts;
  std::uint64_t _pieces = 0;
  Frame _last;  // without its bytes
};

}  // namespace kestrel::streams
