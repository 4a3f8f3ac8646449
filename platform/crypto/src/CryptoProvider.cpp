#include "kestrel/crypto/CryptoProvider.hpp"

#include <openssl/err.h>
#include <openssl/rand.h>
#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string>
#include <system_error>

#include "RandomReserve.hpp"
#include "kestrel/callbacks/ExitGate.hpp"
#include "kestrel/crypto/CryptoException.hpp"

namespace kestrel::crypto {

namespace {

/// Takes this thread's OpenSSL errors off their queue, oldest first.
std::string takeErrorTexts() {
  std::string texts;
  while (const auto code = ERR_get_error()) {
    char text[256];
    ERR_error_string_n(code, text, sizeof text);
    texts.append(texts.empty() ? "" : "; ").append(text);
  }
  return texts.empty() ? "OpenSSL gave no reason" : texts;
}

/// Open until OpenSSL takes its state down, which it does while the process ends and threads may still draw.
callbacks::ExitGate& openSsl() {
  static auto* const gate = new callbacks::ExitGate;
  return *gate;
}

/// The kernel's generator, which OpenSSL seeds its own from.
void drawFromKernel(std::uint8_t* out, std::size_t size) {
  while (size > 0) {
    const auto drawn = getrandom(out, size, 0);
    if (drawn < 0 && errno == EINTR) continue;
    if (drawn <= 0) {
      throw CryptoException(
          "CryptoProvider: expected " + std::to_string(size) +
          " random bytes of the kernel, got none: " + std::generic_category().message(errno));
    }
    out += drawn;
    size -= static_cast<std::size_t>(drawn);
  }
}

void drawBytes(std::uint8_t* out, std::size_t size) {
  const auto pass = openSsl().enter();
  if (!pass) return drawFromKernel(out, size);
  constexpr unsigned defaultStrength = 0;
  ERR_clear_error();  // a failure must not be reported with somebody else's old errors
  if (RAND_bytes_ex(nullptr, out, size, defaultStrength) == 1) return;
  throw CryptoException("CryptoProvider: expected " + std::to_string(size) +
                        " random bytes, got none: " + takeErrorTexts());
}

}  // namespace

CryptoProvider::CryptoProvider() {
  const auto pass = openSsl().enter();
  if (!pass) return;
  ERR_clear_error();
  if (RAND_status() != 1) {
    throw CryptoException("CryptoProvider: expected a seeded random generator, got none: " +
                          takeErrorTexts());
  }
  static const callbacks::ExitGate::Closer closer(openSsl());  // after OpenSSL's own clean-up is registered
}

void CryptoProvider::randomBytes(std::uint8_t* out, std::size_t size) {
  thread_local RandomReserve reserve;
  if (size == 0) return;
  if (size > RandomReserve::largestRequest) return drawBytes(out, size);
  reserve.take(out, size, &drawBytes);
}

void CryptoProvider::addSeed(const std::uint8_t* seed, std::size_t size) {
  constexpr double assumedEntropy = 0.0;  // the caller's bytes may be known to others
  const auto pass = openSsl().enter();
  while (pass && size > 0) {
    const auto part = std::min<std::size_t>(size, INT_MAX);
    RAND_add(seed, static_cast<int>(part), assumedEntropy);
    seed += part;
    size -= part;
  }
  RandomReserve::forgetAll();
}

}  // namespace kestrel::crypto
