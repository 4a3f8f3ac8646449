#include "kestrel/diagnostics/SeveritySettings.hpp"

#include "ChannelTable.hpp"
#include "SeverityNames.hpp"

namespace kestrel::diagnostics {

void setSeverities(std::string_view channelOrStar, SeverityMask mask) {
  ChannelTable::instance().set(channelOrStar, mask);
}

SeverityMask severities(std::string_view channelOrStar) {
  return ChannelTable::instance().severities(channelOrStar);
}

std::vector<std::string> applySeverityText(std::string_view text) {
  return applySeverityTextTo(ChannelTable::instance(), text);
}

}  // namespace kestrel::diagnostics
