#pragma once

#include <chrono>
#include <cstdint>
#include <kestrel/datastreaming/Types.hpp>
#include <memory>

#include "sequencing/ByteBudget.hpp"
#include "sequencing/Stamp.hpp"

namespace kestrel::streams {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

/// How a transport learns that it need not keep a frame any longer. A receipt that is destroyed unsettled
/// says that its consumer went before the frame was dealt with.
class Receipt {
 public:
  virtual ~Receipt() = default;

  /// The data callback has returned for the whole payload, or the payload has been given up and reported.
  virtual void settle() noexcept = 0;
};

/// One message, or one payload that was joined of several, on its way to one consumer. Its bytes stay valid
/// as long as the frame exists.
struct Frame {
  Stamp stamp;
  TimePoint arrival;   ///< the latest time at which it can have arrived; never before that of the last frame
  TimePoint earliest;  ///< the earliest, where the transport tells it
  const std::uint8_t* data = nullptr;
  std::uint64_t size = 0;
  datastreaming::AttributeMap attributes;
  std::shared_ptr<const void> owner;  ///< of the bytes
  ByteBudget::Charge charge;          ///< its share of the consumer's bound, empty where the transport bounds
  std::unique_ptr<Receipt> receipt;   ///< empty where the transport does not ask
  std::uint64_t messages = 1;         ///< of which it was joined
};

inline void settle(std::unique_ptr<Receipt>& receipt) noexcept {
  if (receipt) receipt->settle();
  receipt.reset();
}

}  // namespace kestrel::streams
