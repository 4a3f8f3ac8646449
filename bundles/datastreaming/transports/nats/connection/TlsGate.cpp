#include "transports/nats/connection/TlsGate.hpp"

#include <openssl/crypto.h>

namespace kestrel::streams {

namespace {

callbacks::ExitGate& gate() {
  static auto* const gate = new callbacks::ExitGate;
  return *gate;
}

/// Destroyed before OpenSSL's own clean-up runs, for that was registered before.
struct Closer {
  Closer() { OPENSSL_init_crypto(0, nullptr); }
  callbacks::ExitGate::Closer closer{gate()};
};

}  // namespace

callbacks::ExitGate::Pass useTls() {
  static const Closer closer;
  return gate().enter();
}

}  // namespace kestrel::streams
