#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "sequencing/PayloadBuffer.hpp"

namespace kestrel::streams {

/// Keeps the memory of payloads that were joined and delivered for those to come, up to a bound for the whole
/// process: pages fresh from the system cost several times what pages in use cost. Safe from any thread.
class SpareBuffers {
 public:
  static constexpr std::size_t mostKept = std::size_t{256} << 20;
  static constexpr std::size_t leastKept = std::size_t{64} << 10;  ///< of one buffer; smaller ones are cheap

  /// Those of the process, which are never destroyed.
  static SpareBuffers& shared();

  /// An empty buffer, whose memory comes here when nobody holds it any more.
  [[nodiscard]] std::shared_ptr<PayloadBuffer> make();
  /// Before a buffer grows to that size: gives it the memory of another one if there is one of about that
  /// size; not of a much larger one, for who holds a little must not hold much.
  void prepare(PayloadBuffer& buffer, std::size_t size);

 private:
  [[nodiscard]] PayloadBuffer take(std::size_t size);
  void keep(PayloadBuffer buffer) noexcept;

  callbacks::Mutex _mutex;
  std::vector<PayloadBuffer> _kept KESTREL_GUARDED_BY(_mutex);
  std::size_t _bytes KESTREL_GUARDED_BY(_mutex) = 0;
};

}  // namespace kestrel::streams
