#pragma once

#include <functional>
#include <limits>
#include <utility>

#include "../../tests/datastreaming/NatsServer.hpp"
#include "CuttingProxy.hpp"
#include "Journal.hpp"
#include "Random.hpp"

namespace soak {

/// What befalls the server and the connections to it, one thing at a time.
class Faults {
 public:
  using Outage = std::function<void(std::int64_t from, std::int64_t to)>;

  /// What a connection takes to be noticed as lost, to come back and to be caught up with, on a busy machine.
  static constexpr std::int64_t recovery = 6 * second;

  Faults(kestrel::streams::NatsServer& server, CuttingProxy& proxy, std::uint64_t seed, Outage outage);

  /// Does what is due. To be called often.
  void step();
  /// Ends what is under way; nothing befalls them any more.
  void stop();
  [[nodiscard]] int count() const { return _count; }

 private:
  void begin();
  void repair();
  std::int64_t in(int leastMs, int mostMs);

  kestrel::streams::NatsServer& _server;
  CuttingProxy& _proxy;
  Random _random;
  const Outage _outage;
  std::int64_t _begun = 0;
  std::int64_t _due;
  std::function<void()> _repair;  // of what is under way
  int _count = 0;
};

}  // namespace soak
