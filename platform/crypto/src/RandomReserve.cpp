#include "RandomReserve.hpp"

#include <openssl/crypto.h>
#include <pthread.h>

#include <atomic>
#include <cstring>

namespace kestrel::crypto {

namespace {

std::atomic<std::uint64_t> epoch{1};

// Registered when the library is loaded, before any reserve can hold bytes.
[[maybe_unused]] const int registered = pthread_atfork(nullptr, nullptr, &RandomReserve::forgetAll);

}  // namespace

RandomReserve::~RandomReserve() {
  // All of it, so that a thread that asks once more at its very end finds the reserve empty.
  OPENSSL_cleanse(static_cast<void*>(this), sizeof *this);
}

void RandomReserve::forgetAll() noexcept {
  epoch.fetch_add(1);
}

std::uint64_t RandomReserve::currentEpoch() noexcept {
  return epoch.load();
}

void RandomReserve::give(std::uint8_t* out, std::size_t size) noexcept {
  _left -= size;
  std::memcpy(out, _bytes.data() + _left, size);
  OPENSSL_cleanse(_bytes.data() + _left, size);
}

}  // namespace kestrel::crypto
