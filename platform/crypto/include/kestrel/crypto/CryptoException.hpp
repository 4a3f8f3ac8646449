#pragma once

#include <stdexcept>

#include "kestrel/export/Export.hpp"

namespace kestrel::crypto {

/// A failure of the crypto provider; what() says what was asked for and gives the provider's own text.
class KESTREL_EXPORT CryptoException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace kestrel::crypto
