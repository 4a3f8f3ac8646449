#pragma once

#include <cstddef>
#include <cstdint>

namespace kestrel::crypto {

/// The source of cryptographic primitives that a CryptoEngine works with. Implementations are safe for
/// several threads at once.
class ICryptoProvider {
 public:
  virtual ~ICryptoProvider() = default;

  /// Fills `size` bytes at `out` with random bytes fit for secrets. Throws CryptoException when the generator
  /// cannot give them; the bytes are then of no use.
  virtual void randomBytes(std::uint8_t* out, std::size_t size) = 0;

  /// Mixes the bytes into the generator's state, in addition to its own entropy; never instead of it.
  virtual void addSeed(const std::uint8_t* seed, std::size_t size) = 0;
};

}  // namespace kestrel::crypto
