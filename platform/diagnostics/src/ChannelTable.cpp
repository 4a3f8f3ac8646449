#include "ChannelTable.hpp"

#include <cstdlib>

#include "SeverityNames.hpp"
#include "StandardError.hpp"

namespace kestrel::diagnostics {

namespace {

ChannelTable* makeFromEnvironment() {
  auto* table = new ChannelTable;
  const char* text = secure_getenv("KESTREL_LOG");
  for (const auto& entry : applySeverityTextTo(*table, text ? text : "")) {
    writeLineToStandardError(
        "KESTREL_LOG: entry ignored, expected <channel>=<severity>[,<severity>...], got \"" + entry + "\"");
  }
  return table;
}

}  // namespace

ChannelTable& ChannelTable::instance() {
  static ChannelTable* const table = makeFromEnvironment();
  return *table;
}

const ChannelTable::Channel& ChannelTable::open(std::string_view name) {
  std::lock_guard lock(_mutex);
  return locate(name);
}

void ChannelTable::set(std::string_view channelOrStar, SeverityMask mask) {
  std::lock_guard lock(_mutex);
  if (channelOrStar != "*") {
    auto& setting = locate(channelOrStar).second;
    setting.own = true;
    setting.severities = mask;
    return;
  }
  _default = mask;
  for (auto& [name, setting] : _channels) {
    if (!setting.own) setting.severities = mask;
  }
}

SeverityMask ChannelTable::severities(std::string_view channelOrStar) const {
  std::lock_guard lock(_mutex);
  const auto found = _channels.find(channelOrStar);
  return found == _channels.end() ? _default : found->second.severities.load();
}

ChannelTable::Channel& ChannelTable::locate(std::string_view name) {
  const auto [position, isNew] = _channels.try_emplace(std::string(name));
  if (isNew) position->second.severities = _default;
  return *position;
}

}  // namespace kestrel::diagnostics
