#include "Payload.hpp"

#include <algorithm>
#include <cstring>
#include <kestreldata/kestreldata.hpp>
#include <sstream>
#include <vector>

#include "Plan.hpp"

namespace soak {

using kestreldata::TypedArray;
using remote_connectivity::asyncio::util::DataStruct;

namespace {

constexpr std::uint64_t responseSalt = 0x5bd1e995;
constexpr std::uint64_t longestResponse = 200'000;

/// The words of a splitmix64 generator.
class Pattern {
 public:
  Pattern(const Label& label, std::uint64_t salt)
      : _state(label.sender * 0x9e3779b97f4a7c15ULL ^ label.number * 0xd1b54a32d192ed03ULL ^ label.size ^
               salt) {}

  std::uint64_t next() {
    std::uint64_t word = _state += 0x9e3779b97f4a7c15ULL;
    word = (word ^ (word >> 30)) * 0xbf58476d1ce4e5b9ULL;
    word = (word ^ (word >> 27)) * 0x94d049bb133111ebULL;
    return word ^ (word >> 31);
  }

 private:
  std::uint64_t _state;
};

DataStruct make(const Label& label, std::uint64_t size, std::uint64_t salt) {
  auto array = kestreldata::ArrayFactory().createArray<std::uint8_t>({1, size});
  std::uint8_t* const bytes = size > 0 ? &*array.begin() : nullptr;
  Pattern pattern(label, salt);
  for (std::uint64_t at = 0; at < size; at += sizeof(std::uint64_t)) {
    const std::uint64_t word = pattern.next();
    std::memcpy(bytes + at, &word, std::min<std::size_t>(sizeof word, size - at));
  }
  std::ostringstream text;
  text << label.sender << ' ' << label.number << ' ' << label.size;
  return {array,
          {{"number", static_cast<long>(label.number)}, {"salted", std::to_string(label.sender ^ salt)}},
          text.str()};
}

bool agrees(const DataStruct& message, const Label& label, std::uint64_t size, std::uint64_t salt) {
  const auto number = message.attributes.find("number");
  const auto salted = message.attributes.find("salted");
  if (number == message.attributes.end() || salted == message.attributes.end()) return false;
  if (number->second != std::variant<long, std::string>(static_cast<long>(label.number))) return false;
  if (salted->second != std::variant<long, std::string>(std::to_string(label.sender ^ salt))) return false;
  if (message.data.getType() != kestreldata::ArrayType::UINT8) return false;
  const TypedArray<std::uint8_t> array(message.data);
  if (array.getNumberOfElements() != size) return false;
  const std::uint8_t* const bytes = size > 0 ? &*array.begin() : nullptr;
  Pattern pattern(label, salt);
  for (std::uint64_t at = 0; at < size; at += sizeof(std::uint64_t)) {
    const std::uint64_t word = pattern.next();
    if (std::memcmp(bytes + at, &word, std::min<std::size_t>(sizeof word, size - at)) != 0) return false;
  }
  return true;
}

std::optional<Label> labelIn(const std::string& text) {
  Label label;
  std::istringstream in(text);
  if (!(in >> label.sender >> label.number >> label.size) || !in.eof()) return std::nullopt;
  return label;
}

std::uint64_t responseSize(const Label& label) {
  return std::min(label.size, longestResponse);
}

}  // namespace

DataStruct makeMessage(const Label& label) {
  return make(label, label.size, 0);
}

DataStruct makeResponse(const Label& label) {
  return make(label, responseSize(label), responseSalt);
}

std::optional<Label> verified(const DataStruct& message) {
  auto label = labelIn(message.id);
  if (label && !agrees(message, *label, label->size, 0)) label.reset();
  return label;
}

bool isResponseTo(const Label& label, const DataStruct& response) {
  return labelIn(response.id) == label && agrees(response, label, responseSize(label), responseSalt);
}

std::uint64_t anySize(Random& random) {
  const auto dice = random.between(1, 1000);
  if (dice <= 20) return 0;
  if (dice <= 600) return static_cast<std::uint64_t>(random.between(1, 2'000));
  if (dice <= 950) return static_cast<std::uint64_t>(random.between(2'000, 300'000));
  if (dice <= 996) return static_cast<std::uint64_t>(random.between(300'000, 4'000'000) / slowness);
  return static_cast<std::uint64_t>(random.between(8'000'000, 40'000'000) / slowness);
}

}  // namespace soak
