#include "transports/StreamToken.hpp"

#include <openssl/evp.h>

#include <array>
#include <cctype>
#include <random>
#include <stdexcept>

namespace kestrel::streams {

namespace {

constexpr std::size_t longestPlain = 128;

std::string toHex(const unsigned char* bytes, std::size_t count, const char* digits) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 15];
  }
  return text;
}

constexpr const char* lower = "0123456789abcdef";
constexpr const char* upper = "0123456789ABCDEF";

bool isSafe(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
}

std::string hash(const std::string& text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  if (EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("hashing a stream identifier failed");
  }
  return toHex(digest.data(), size, lower);
}

}  // namespace

std::string randomToken() {
  std::random_device source;
  std::array<unsigned char, 16> bytes{};
  for (auto& byte : bytes) byte = static_cast<unsigned char>(source());
  return toHex(bytes.data(), bytes.size(), lower);
}

// Plain tokens have upper-case digits after each '_', so those marked "_h" and "_a" are never one of them.
std::string makeToken(const std::string& identifier) {
  if (identifier.empty()) return "_a" + randomToken();
  std::string token;
  for (const char c : identifier) {
    const auto byte = static_cast<unsigned char>(c);
    if (isSafe(byte)) {
      token += c;
    } else {
      token += '_' + toHex(&byte, 1, upper);
    }
    if (token.size() > longestPlain) return "_h" + hash(identifier);
  }
  return token;
}

}  // namespace kestrel::streams
