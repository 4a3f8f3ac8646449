#include "kestrel/crypto/CryptoEngine.hpp"

#include <stdexcept>
#include <utility>

namespace kestrel::crypto {

CryptoEngine::CryptoEngine(std::shared_ptr<ICryptoProvider> provider) : _provider(std::move(provider)) {
  if (!_provider)
    throw std::invalid_argument("CryptoEngine: expected a crypto provider, got an empty pointer");
}

CryptoPRNG<DefaultPRNGAlgorithm> CryptoEngine::createDefaultCryptoPRNG(
    const std::vector<std::uint8_t>& seed) const {
  if (!seed.empty()) _provider->addSeed(seed.data(), seed.size());
  return CryptoPRNG<DefaultPRNGAlgorithm>(_provider);
}

}  // namespace kestrel::crypto
