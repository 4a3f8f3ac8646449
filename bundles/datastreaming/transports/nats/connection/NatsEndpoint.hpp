#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "transports/ServiceSettings.hpp"
#include "transports/nats/connection/ServerAddress.hpp"

namespace kestrel::streams {

/// What an endpoint such as "nats://a:4222,nats://b:4222?delivery=durable" and the settings beside it say. A
/// value object.
struct NatsEndpoint {
  enum class Delivery {
    live,     ///< to every consumer that is there, at most once, no backlog
    durable,  ///< stored, then to one consumer, until acknowledged
  };

  std::vector<ServerAddress> servers;  ///< all secure, or none
  std::string shown;                   ///< the servers for texts, without user, password and query
  std::string token;                   ///< for servers without a user; empty for none
  bool secure = false;                 ///< over TLS
  Delivery delivery = Delivery::live;

  std::string inboxPrefix = "_INBOX";  ///< what the subjects begin with at which we are answered

  std::chrono::seconds pingInterval{20};
  std::chrono::milliseconds firstBackoff{100};
  long maxReconnects = 0;  ///< 0: for ever

  std::string certificateAuthority;  ///< file of trusted certificates; empty: the system's
  std::string certificate;           ///< file of our own certificate chain; empty for none
  std::string privateKey;            ///< file of its key
  std::string certificateHost;       ///< the name that the server's certificate must carry; empty: the host

  std::chrono::seconds maxAge{24 * 3600};  ///< how long a stored message is kept
  std::int64_t maxBytes = 1LL << 30;       ///< how much is stored of one stream
  long replicas = 1;                       ///< on how many servers
  std::chrono::seconds retry{120};         ///< how long storing one message is tried
};

/// Reads the endpoint; its query gives what the settings do not. Throws std::runtime_error that says
/// what was expected, of which key, and where in the endpoint, and repeats nothing of what came.
[[nodiscard]] NatsEndpoint readNatsEndpoint(const ServiceSettings& settings);

}  // namespace kestrel::streams
