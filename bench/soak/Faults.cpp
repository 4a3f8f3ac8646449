#include "Faults.hpp"

#include <iostream>

namespace soak {

Faults::Faults(kestrel::streams::NatsServer& server, CuttingProxy& proxy, std::uint64_t seed, Outage outage)
    : _server(server), _proxy(proxy), _random(seed), _outage(std::move(outage)), _due(in(4'000, 7'000)) {}

std::int64_t Faults::in(int leastMs, int mostMs) {
  return now() + _random.between(leastMs, mostMs) * (second / 1000);
}

void Faults::step() {
  if (now() < _due) return;
  if (_repair) {
    repair();
  } else {
    begin();
  }
}

void Faults::stop() {
  if (_repair) repair();
  _due = std::numeric_limits<std::int64_t>::max();
}

void Faults::begin() {
  ++_count;
  _begun = now();
  _repair = [] {};
  _due = _begun;
  const auto dice = _random.between(1, 100);
  if (dice <= 40) {
    std::cout << "  a connection is cut" << std::endl;
    _proxy.cutOne(_random);
  } else if (dice <= 50) {
    std::cout << "  all connections are cut" << std::endl;
    _proxy.cutAll();
  } else if (dice <= 75) {
    std::cout << "  the server is killed" << std::endl;
    _server.kill();
    _repair = [this] { _server.start(); };
    _due = in(100, (retrySeconds + 3) * 1000);
  } else {
    std::cout << "  the server stops" << std::endl;
    _server.freeze();
    _repair = [this] { _server.thaw(); };
    _due = in(500, (retrySeconds + 3) * 1000);
  }
}

void Faults::repair() {
  _repair();
  _repair = nullptr;
  _outage(_begun - second, now() + recovery);
  _due = in(2'000, 8'000);
}

}  // namespace soak
