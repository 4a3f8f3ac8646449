#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kestrel/crypto/CryptoPRNG.hpp"
#include "kestrel/export/Export.hpp"

namespace kestrel::crypto {

/// Makes the cryptographic objects of one provider. Safe for several threads at once.
class KESTREL_EXPORT CryptoEngine {
 public:
  /// Throws std::invalid_argument for an empty provider. What the engine makes shares the provider.
  explicit CryptoEngine(std::shared_ptr<ICryptoProvider> provider);

  /// A generator that its provider seeds; a seed that is not empty is mixed in besides. Equal seeds do not
  /// make equal sequences.
  [[nodiscard]] CryptoPRNG<DefaultPRNGAlgorithm> createDefaultCryptoPRNG(
      const std::vector<std::uint8_t>& seed) const;

 private:
  std::shared_ptr<ICryptoProvider> _provider;
};

}  // namespace kestrel::crypto
