#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "kestrel/crypto/ICryptoProvider.hpp"

namespace kestrel::crypto {

/// Names the provider's own generator.
struct DefaultPRNGAlgorithm {};

template <class Algorithm>
class CryptoPRNG;

/// Gives random bytes of the provider's own generator. Copies share that generator. Safe for several threads
/// at once; made by CryptoEngine.
template <>
class CryptoPRNG<DefaultPRNGAlgorithm> {
 public:
  explicit CryptoPRNG(std::shared_ptr<ICryptoProvider> provider) : _provider(std::move(provider)) {}

  /// `size` fresh random bytes. Throws CryptoException as the provider does.
  [[nodiscard]] std::vector<std::uint8_t> generateByteArray(std::size_t size) const {
    std::vector<std::uint8_t> bytes(size);
    _provider->randomBytes(bytes.data(), bytes.size());
    return bytes;
  }

 private:
  std::shared_ptr<ICryptoProvider> _provider;
};

}  // namespace kestrel::crypto
