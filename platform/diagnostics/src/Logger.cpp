#include "kestrel/diagnostics/Logger.hpp"

#include "BoostLogWriter.hpp"
#include "ChannelTable.hpp"
#include "ObserverList.hpp"
#include "StandardError.hpp"

namespace kestrel::diagnostics {

Logger::Logger(std::string_view channel) {
  const auto& [name, setting] = ChannelTable::instance().open(channel);
  _channel = &name;
  _severities = &setting.severities;
}

void Logger::write(Severity severity, std::string_view text) const noexcept {
  const Record record{*_channel, severity, text};
  notifyObservers(record);
  // An output that fails loses this record, nothing else.
  try {
    writeToStandardError(record);
  } catch (...) {
  }
  try {
    writeToBoostLog(record);
  } catch (...) {
  }
}

}  // namespace kestrel::diagnostics
