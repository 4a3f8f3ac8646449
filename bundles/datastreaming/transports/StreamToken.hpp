#pragma once

#include <string>

namespace kestrel::streams {

/// Writes an identifier of any bytes as one token of [A-Za-z0-9_-], different for different identifiers.
/// Long ones become their SHA-256 hash. An empty one becomes a new random token.
[[nodiscard]] std::string makeToken(const std::string& identifier);

/// 128 random bits as 32 hexadecimal digits, from the system's source: nobody can guess it.
[[nodiscard]] std::string randomToken();

}  // namespace kestrel::streams
