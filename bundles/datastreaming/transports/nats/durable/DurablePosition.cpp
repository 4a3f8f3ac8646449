#include "transports/nats/durable/DurablePosition.hpp"

#include <algorithm>
#include <utility>

namespace kestrel::streams {

DurablePosition::Arrival DurablePosition::arrived(std::uint64_t number, std::string acknowledgeTo) {
  Arrival arrival;
  if (number > _last) {
    const std::uint64_t known = std::max(_last, _quietUpTo);
    if (known > 0 && number > known) arrival.expired = number - known - 1;
    arrival.fresh = true;
    _last = number;
    _open[number] = std::move(acknowledgeTo);
    return arrival;
  }
  const auto open = _open.find(number);
  arrival.settled = open == _open.end();
  if (!arrival.settled) open->second = std::move(acknowledgeTo);
  return arrival;
}

std::string DurablePosition::settle(std::uint64_t number) {
  auto node = _open.extract(number);
  return node ? std::move(node.mapped()) : std::string();
}

}  // namespace kestrel::streams
