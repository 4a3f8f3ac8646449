#pragma once

#include <string>

#include "kestrel/callbacks/ExitGate.hpp"
#include "remote_connectivity/asyncio/util/UUIDAdaptor.hpp"

namespace remote_connectivity::asyncio::util {

/// A new identifier from the one generator that the process keeps for the purpose. It goes with the process;
/// threads that still ask then are served by another one, which stays. Any thread.
template <class Purpose>
std::string newId() {
  static auto& gate = *new kestrel::callbacks::ExitGate;
  if (const auto pass = gate.enter()) {
    static UUIDAdaptor generator;
    static const kestrel::callbacks::ExitGate::Closer closer(gate);
    return generator();
  }
  static auto& last = *new UUIDAdaptor;
  return last();
}

}  // namespace remote_connectivity::asyncio::util
