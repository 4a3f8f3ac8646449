#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "kestrel/diagnostics/RecordObserver.hpp"

namespace kestrel::diagnostics {

/// Keeps a failure that comes again and again from filling the log: after a record, those that repeat it are
/// counted for a while. A record repeats another of its channel and severity if the texts are the same, save
/// for numbers that follow a blank or a bracket (sizes and counts; not "sensor-2"). Not thread-safe.
class RepeatFilter {
 public:
  using Clock = std::chrono::steady_clock;

  /// How long repetitions are counted before the text is written again.
  static constexpr std::chrono::seconds period{10};
  /// The most texts that are remembered. One more, and the oldest is forgotten.
  static constexpr std::size_t mostTexts = 64;
  /// Longer ones are not remembered.
  static constexpr std::size_t longestText = 1000;

  /// What was held back: the last of the records, and how many they were.
  struct Repeated {
    std::string channel;
    Severity severity;
    std::string text;
    std::uint64_t times = 0;
  };

  /// Whether the record is to be written. To be written before it: what is added to `ended`.
  [[nodiscard]] bool admits(const Record& record, Clock::time_point now, std::vector<Repeated>& ended);

  /// Forgets everything and returns what was held back.
  [[nodiscard]] std::vector<Repeated> takeAll();

 private:
  struct Entry {
    std::string shape;
    Clock::time_point since;
    Repeated repeated;
  };

  void forgetOldest(std::vector<Repeated>& ended);

  std::deque<Entry> _entries;  // the oldest first
};

}  // namespace kestrel::diagnostics
