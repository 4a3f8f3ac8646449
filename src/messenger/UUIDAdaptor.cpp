#include "remote_connectivity/asyncio/util/UUIDAdaptor.hpp"

#include <algorithm>
#include <boost/uuid/uuid_io.hpp>

#include "kestrel/crypto/CryptoEngine.hpp"
#include "kestrel/crypto/CryptoProvider.hpp"

namespace remote_connectivity::asyncio::util {

class UUIDAdaptor::Impl {
 public:
  Impl()
      : _provider(std::make_shared<kestrel::crypto::CryptoProvider>()),
        _engine(_provider),
        _generator(_engine.createDefaultCryptoPRNG({})) {}

  std::vector<std::uint8_t> generate(std::size_t count) { return _generator.generateByteArray(count); }

 private:
  std::shared_ptr<kestrel::crypto::ICryptoProvider> _provider;
  kestrel::crypto::CryptoEngine _engine;
  kestrel::crypto::CryptoPRNG<kestrel::crypto::DefaultPRNGAlgorithm> _generator;  // safe for several threads
};

UUIDAdaptor::UUIDAdaptor() : _impl(std::make_unique<Impl>()) {}

UUIDAdaptor::~UUIDAdaptor() = default;

boost::uuids::uuid UUIDAdaptor::generateBytes() {
  boost::uuids::uuid id{};
  const auto bytes = _impl->generate(id.size());
  std::copy_n(bytes.begin(), std::min(bytes.size(), std::size_t{id.size()}), id.begin());
  return id;
}

std::string UUIDAdaptor::toString(boost::uuids::uuid id) {
  return boost::uuids::to_string(id);
}

std::string UUIDAdaptor::operator()() {
  return toString(generateBytes());
}

}  // namespace remote_connectivity::asyncio::util
