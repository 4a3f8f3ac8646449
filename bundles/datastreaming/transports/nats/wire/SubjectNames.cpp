#include "transports/nats/wire/SubjectNames.hpp"

#include "transports/StreamToken.hpp"

namespace kestrel::streams {

SubjectNames::SubjectNames(const std::string& identifier) : anonymous(identifier.empty()) {
  const std::string token = makeToken(identifier);
  live = "kestrel.live." + token;
  durable = "kestrel.durable." + token;
  store = "KESTREL_" + token;
}

}  // namespace kestrel::streams
