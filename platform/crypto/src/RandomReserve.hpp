#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace kestrel::crypto {

/// Random bytes that a thread has drawn ahead: asking OpenSSL for 16 bytes costs nearly what asking for a
/// thousand does. Bytes are given out once and wiped. For one thread; see forgetAll().
class RandomReserve {
 public:
  /// Requests larger than this gain nothing from the reserve.
  static constexpr std::size_t largestRequest = 64;

  /// Fills the reserve with what it needs: a function of a pointer and a size that throws when it cannot.
  template <class Source>
  void take(std::uint8_t* out, std::size_t size, Source&& source) {
    if (_left < size || _epoch != currentEpoch()) {
      _left = 0;
      _epoch = currentEpoch();
      source(_bytes.data(), _bytes.size());
      _left = _bytes.size();
    }
    give(out, size);
  }

  ~RandomReserve();

  /// Makes the reserves of all threads worthless: after new seed, and in the child of a fork, which would
  /// otherwise give out the parent's bytes again.
  static void forgetAll() noexcept;

 private:
  static std::uint64_t currentEpoch() noexcept;
  void give(std::uint8_t* out, std::size_t size) noexcept;

  std::array<std::uint8_t, 1024> _bytes{};
  std::size_t _left = 0;  // the unused bytes are the first ones
  std::uint64_t _epoch = 0;
};

}  // namespace kestrel::crypto
