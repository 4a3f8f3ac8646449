#pragma once

#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <utility>

#include "../../tests/datastreaming/NatsServer.hpp"
#include "CuttingProxy.hpp"
#include "Journal.hpp"
#include "Outage.hpp"
#include "Random.hpp"

namespace soak {

/// What befalls the server and the connections to it, one thing at a time.
class Faults {
 public:
  using Proxies = std::map<std::uint32_t, std::unique_ptr<CuttingProxy>>;  ///< by their processes
  using Notice = std::function<void(const Outage&)>;

  /// What a connection takes to be noticed as lost, to come back and to be caught up with, on a busy machine.
  static constexpr std::int64_t recovery = 6 * second;

  Faults(kestrel::streams::NatsServer& server, Proxies& proxies, std::uint64_t seed, Notice notice);

  /// Does what is due. To be called often.
  void step();
  /// Ends what is under way; nothing befalls them any more.
  void stop();
  [[nodiscard]] int count() const { return _count; }

 private:
  void begin();
  void repair();
  void cutOne();
  std::int64_t in(int leastMs, int mostMs);

  kestrel::streams::NatsServer& _server;
  Proxies& _proxies;
  Random _random;
  const Notice _notice;
  std::int64_t _begun = 0;
  std::uint32_t _struck = Outage::everybody;
  std::int64_t _due;
  std::function<void()> _repair;  // of what is under way
  int _count = 0;
};

}  // namespace soak
