#include "sequencing/ByteBudget.hpp"

namespace kestrel::streams {

namespace {
constexpr std::uint64_t messageOverhead = 256;
constexpr std::uint64_t attributeOverhead = 96;
}  // namespace

std::uint64_t ByteBudget::costOf(std::uint64_t size, const datastreaming::AttributeMap& attributes) {
  std::uint64_t cost = size + messageOverhead;
  for (const auto& [key, value] : attributes) {
    cost += attributeOverhead + key.size();
    if (const auto* text = std::get_if<std::string>(&value)) cost += text->size();
  }
  return cost;
}

bool ByteBudget::hasRoom(std::uint64_t cost) const {
  const std::uint64_t taken = used();
  return taken <= _limit && cost <= _limit - taken;
}

}  // namespace kestrel::streams
