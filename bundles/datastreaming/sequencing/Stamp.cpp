#include "sequencing/Stamp.hpp"

#include <charconv>
#include <random>

namespace kestrel::streams {

std::uint64_t makeProducerId() {
  std::random_device source;
  std::uint64_t id = 0;
  while (id == 0) id = (static_cast<std::uint64_t>(source()) << 32) | source();
  return id;
}

void writeMessageId(const Stamp& stamp, std::string& text) {
  char buffer[40];
  char* const end = buffer + sizeof buffer;
  char* at = std::to_chars(buffer, end, stamp.producer, 16).ptr;
  *at++ = '-';
  at = std::to_chars(at, end, stamp.sequence).ptr;
  text.assign(buffer, at);
}

}  // namespace kestrel::streams
