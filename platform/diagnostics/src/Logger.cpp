#include "kestrel/diagnostics/Logger.hpp"

#include "BoostLogWriter.hpp"
#include "ChannelTable.hpp"
#include "ObserverList.hpp"

namespace kestrel::diagnostics {

Logger::Logger(std::string_view channel) {
  prepareBoostLog();
  const auto& [name, setting] = ChannelTable::instance().open(channel);
  _channel = &name;
  _severities = &setting.severities;
}

void Logger::write(Severity severity, std::string_view text) const noexcept {
  notifyObservers({*_channel, severity, text});
  try {
    writeToBoostLog(*_channel, severity, text);
  } catch (...) {  // a sink that fails loses this record, nothing else
  }
}

}  // namespace kestrel::diagnostics
