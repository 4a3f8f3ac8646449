#include "transports/nats/durable/ReaderSubjects.hpp"

#include <algorithm>
#include <charconv>
#include <span>
#include <vector>

namespace kestrel::streams {

namespace {

using Tokens = std::vector<std::string_view>;

Tokens split(std::string_view subject) {
  Tokens tokens;
  for (;;) {
    const auto dot = subject.find('.');
    tokens.push_back(subject.substr(0, dot));
    if (dot == std::string_view::npos) return tokens;
    subject.remove_prefix(dot + 1);
  }
}

bool isPlain(std::string_view token) {
  return !token.empty() && token.find_first_not_of(
                               "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                               "0123456789-_") == std::string_view::npos;
}

std::optional<std::uint64_t> readNumber(std::string_view token) {
  std::uint64_t number = 0;
  const char* const end = token.data() + token.size();
  const auto [at, error] = std::from_chars(token.data(), end, number);
  if (error != std::errc() || at != end) return std::nullopt;
  return number;
}

/// What stands behind "$JS.kind.store.reader.", domain and account allowed in front of the store; nothing if
/// it is another subject, or not exactly so much stands there.
Tokens tailOf(std::string_view subject, std::string_view kind, std::string_view store, std::size_t size) {
  Tokens tokens = split(subject);
  constexpr std::size_t shortHead = 4, longHead = 6;
  if (!std::all_of(tokens.begin() + 1, tokens.end(), isPlain)) return {};
  for (const std::size_t head : {shortHead, longHead}) {
    const bool mayHaveToken = head == longHead && tokens.size() == head + size + 1;
    if (tokens.size() != head + size && !mayHaveToken) continue;
    if (tokens[0] != "$JS" || tokens[1] != kind || tokens[head - 2] != store ||
        tokens[head - 1] != SubjectNames::reader)
      continue;
    return {tokens.begin() + static_cast<std::ptrdiff_t>(head),
            tokens.begin() + static_cast<std::ptrdiff_t>(head + size)};
  }
  return {};
}

}  // namespace

std::optional<DeliveryNumbers> ReaderSubjects::readDelivery(std::string_view reply) const {
  const Tokens tail = tailOf(reply, "ACK", _store, 5);
  if (tail.empty() || !std::ranges::all_of(tail, [](auto token) { return readNumber(token).has_value(); }))
    return std::nullopt;
  return DeliveryNumbers{*readNumber(tail[1]), *readNumber(tail[2])};
}

bool ReaderSubjects::isFlowControl(std::string_view subject) const {
  return !tailOf(subject, "FC", _store, 1).empty();
}

std::string ReaderSubjects::acknowledgement(const DeliveryNumbers& numbers) const {
  return "$JS.ACK." + _store + "." + SubjectNames::reader + ".1." + std::to_string(numbers.stored) + "." +
         std::to_string(numbers.count) + ".0.0";
}

}  // namespace kestrel::streams
