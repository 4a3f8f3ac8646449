#pragma once

#include <string>

namespace kestrel::streams {

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
