#pragma once

#include <kestrel/callbacks/ExitGate.hpp>

namespace kestrel::streams {

/// The right to use connections over TLS; empty once OpenSSL takes its state down, which it does while the
/// process ends and threads may still send and receive. Safe from any thread.
[[nodiscard]] callbacks::ExitGate::Pass useTls();

}  // namespace kestrel::streams
