#include "Faults.hpp"

#include <iostream>

namespace soak {

Faults::Faults(kestrel::streams::NatsServer& server, Proxies& proxies, std::uint64_t seed, Notice notice)
    : _server(server), _proxies(proxies), _random(seed), _notice(std::move(notice)), _due(in(4'000, 7'000)) {}

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
  _struck = Outage::everybody;
  _repair = [] {};
  _due = _begun;
  const auto dice = _random.between(1, 100);
  if (dice <= 40) {
    std::cout << "  a connection is cut" << std::endl;
    cutOne();
  } else if (dice <= 50) {
    std::cout << "  all connections are cut" << std::endl;
    for (auto& [process, proxy] : _proxies) proxy->cutAll();
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

void Faults::cutOne() {
  auto proxy = _proxies.begin();
  std::advance(proxy, _random.between(0, static_cast<std::int64_t>(_proxies.size()) - 1));
  if (proxy->second->cutOne(_random)) _struck = proxy->first;
}

void Faults::repair() {
  _repair();
  _repair = nullptr;
  _notice({_struck, _begun - second, now() + recovery});
  // Every other time soon, before all have recovered; else so late that for some time nothing is excused.
  _due = _random.chance(50) ? in(1'000, 6'000) : in(12'000, 20'000);
}

}  // namespace soak
