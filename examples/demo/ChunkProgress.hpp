#pragma once

#include <kestrel/diagnostics/RecordObserver.hpp>
#include <kestrel/diagnostics/SeveritySettings.hpp>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <iostream>
#include <string>

/// Shows how far a large payload has been sent, from the log of the library's sender, which writes one record
/// for each chunk.
class ChunkProgress {
 public:
  explicit ChunkProgress(std::uint64_t total)
      : _total(total), _observer([this](const auto& record) { see(record); }) {
    kestrel::diagnostics::setStandardErrorOutput(false);  // the records are for this display only
    kestrel::diagnostics::setSeverities(
        channel, kestrel::diagnostics::defaultSeverities | kestrel::diagnostics::Severity::trace);
  }
  ~ChunkProgress() {
    kestrel::diagnostics::setSeverities(channel, kestrel::diagnostics::defaultSeverities);
    kestrel::diagnostics::setStandardErrorOutput(true);
  }
  ChunkProgress(const ChunkProgress&) = delete;
  ChunkProgress& operator=(const ChunkProgress&) = delete;

  [[nodiscard]] std::uint64_t chunks() const { return _chunks; }

 private:
  static constexpr char channel[] = "asyncio::util::SendDataHelper";

  // On the thread that sends.
  void see(const kestrel::diagnostics::Record& record) {
    static constexpr std::string_view mark = "chunkSize: ";
    const std::string text(record.text);
    const auto at = text.find(mark);
    if (record.channel != channel || at == std::string::npos) return;
    ++_chunks;
    _sent += std::stoull(text.substr(at + mark.size()));
    const auto percent = std::min<std::uint64_t>(100, _sent * 100 / _total);  // the envelope adds a little
    std::cout << "\r  " << percent << " %  " << _sent << " bytes in " << _chunks << " chunks" << std::flush;
  }

  const std::uint64_t _total;
  std::atomic<std::uint64_t> _sent = 0;
  std::atomic<std::uint64_t> _chunks = 0;
  kestrel::diagnostics::RecordObserver _observer;  // last: it is told as soon as it exists
};
