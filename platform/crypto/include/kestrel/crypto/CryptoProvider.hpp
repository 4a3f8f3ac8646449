#pragma once

#include "kestrel/crypto/ICryptoProvider.hpp"
#include "kestrel/export/Export.hpp"

namespace kestrel::crypto {

/// The provider over OpenSSL's default generator, which seeds itself and keeps a state for each thread. Safe
/// for several threads at once, and after a fork.
class KESTREL_EXPORT CryptoProvider : public ICryptoProvider {
 public:
  /// Throws CryptoException when OpenSSL has no seeded generator.
  CryptoProvider();

  void randomBytes(std::uint8_t* out, std::size_t size) override;
  void addSeed(const std::uint8_t* seed, std::size_t size) override;
};

}  // namespace kestrel::crypto
