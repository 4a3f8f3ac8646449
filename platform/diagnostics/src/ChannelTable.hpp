#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "kestrel/diagnostics/Severity.hpp"

namespace kestrel::diagnostics {

/// The process's channels and their severities. Entries are never removed, so loggers keep pointers to them.
class ChannelTable {
 public:
  struct Setting {
    std::atomic<SeverityMask> severities{noSeverities};
    bool own = false;  // set for this channel by name; guarded by the table's mutex
  };
  using Channel = std::pair<const std::string, Setting>;

  /// The one table. Made on first use and leaked on purpose: static objects log in their destructors.
  static ChannelTable& instance();

  const Channel& open(std::string_view name);
  void set(std::string_view channelOrStar, SeverityMask mask);
  SeverityMask severities(std::string_view channelOrStar) const;

 private:
  Channel& locate(std::string_view name);

  mutable std::mutex _mutex;
  // Guarded by _mutex; the severities inside are read without it.
  SeverityMask _default = defaultSeverities;
  std::map<std::string, Setting, std::less<>> _channels;
};

}  // namespace kestrel::diagnostics
