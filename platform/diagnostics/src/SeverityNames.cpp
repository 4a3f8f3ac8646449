#include "SeverityNames.hpp"

#include <array>
#include <optional>
#include <utility>

#include "ChannelTable.hpp"

namespace kestrel::diagnostics {

namespace {

constexpr auto names = std::to_array<std::pair<std::string_view, SeverityMask>>({
    {"trace", noSeverities | Severity::trace},
    {"setup", noSeverities | Severity::setup},
    {"function", noSeverities | Severity::functionTrace},
    {"warning", noSeverities | Severity::warning},
    {"error", noSeverities | Severity::error},
    {"all", allSeverities},
    {"none", noSeverities},
});

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const auto first = text.find_first_not_of(blanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// Takes the text before the next separator off the front of `rest`.
std::string_view takeUpTo(char separator, std::string_view& rest) {
  const auto end = rest.find(separator);
  const auto part = trimmed(rest.substr(0, end));
  rest = end == rest.npos ? std::string_view{} : rest.substr(end + 1);
  return part;
}

std::optional<SeverityMask> maskOf(std::string_view list) {
  SeverityMask mask = noSeverities;
  do {
    const auto name = takeUpTo(',', list);
    const auto* found = names.begin();
    while (found != names.end() && found->first != name) ++found;
    if (found == names.end()) return std::nullopt;
    mask |= found->second;
  } while (!list.empty());
  return mask;
}

bool applyEntry(ChannelTable& table, std::string_view entry) {
  auto rest = entry;
  const auto channel = takeUpTo('=', rest);
  const auto mask = maskOf(rest);
  if (channel.empty() || !mask) return false;
  table.set(channel, *mask);
  return true;
}

}  // namespace

std::string severityName(SeverityMask severity) {
  for (const auto& [name, mask] : names) {
    if (mask == severity && severity != noSeverities) return std::string(name);
  }
  return std::to_string(severity);
}

std::vector<std::string> applySeverityTextTo(ChannelTable& table, std::string_view text) {
  std::vector<std::string> ignored;
  while (!text.empty()) {
    const auto entry = takeUpTo(';', text);
    if (!entry.empty() && !applyEntry(table, entry)) ignored.emplace_back(entry);
  }
  return ignored;
}

}  // namespace kestrel::diagnostics
