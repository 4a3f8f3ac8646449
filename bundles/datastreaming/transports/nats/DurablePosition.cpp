#include "transports/nats/DurablePosition.hpp"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>
#include <vector>

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

std::optional<DeliveryNumbers> readDeliveryNumbers(const std::string& reply) {
  std::vector<std::string_view> tokens;
  for (std::string_view rest = reply;;) {
    const auto dot = rest.find('.');
    tokens.push_back(rest.substr(0, dot));
    if (dot == std::string_view::npos) break;
    rest.remove_prefix(dot + 1);
  }
  if (tokens.size() < 9 || tokens[0] != "$JS" || tokens[1] != "ACK") return std::nullopt;
  const std::size_t first = tokens.size() >= 11 ? 4 : 2;  // of the store's name
  const auto read = [](std::string_view text, std::uint64_t& number) {
    return std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
  };
  DeliveryNumbers numbers;
  if (!read(tokens[first + 3], numbers.stored) || !read(tokens[first + 4], numbers.count))
    return std::nullopt;
  return numbers;
}

}  // namespace kestrel::streams
