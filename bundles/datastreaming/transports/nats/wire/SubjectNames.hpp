#pragma once

#include <string>

namespace kestrel::streams {

/// Writes an identifier of any bytes as one token of [A-Za-z0-9_-], different for different identifiers.
/// Long ones become their SHA-256 hash. An empty one becomes a new random token.
[[nodiscard]] std::string makeToken(const std::string& identifier);

/// 128 random bits as 32 hexadecimal digits, from the system's source: nobody can guess it.
[[nodiscard]] std::string randomToken();

/// The names that one stream has at the server.
struct SubjectNames {
  explicit SubjectNames(const std::string& identifier);

  bool anonymous;       ///< nobody else can know them
  std::string live;     ///< subject of live messages
  std::string durable;  ///< subject of stored messages
  std::string store;    ///< the JetStream stream that stores them

  /// The one consumer of a store; the name is never destroyed.
  inline static const std::string& reader = *new const std::string("kestrel");
};

}  // namespace kestrel::streams
