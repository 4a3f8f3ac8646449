#pragma once

#include <openssl/evp.h>

#include <cstddef>
#include <stdexcept>
#include <string>

/// The SHA-256 of the bytes as 64 hexadecimal digits.
inline std::string sha256(const void* data, std::size_t size) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(data, size, digest, &length, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("SHA-256 is not available");
  }
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (unsigned int i = 0; i < length; ++i) {
    text += digits[digest[i] >> 4];
    text += digits[digest[i] & 15];
  }
  return text;
}
