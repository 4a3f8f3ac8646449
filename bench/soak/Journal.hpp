#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <vector>

#include "Plan.hpp"

namespace soak {

/// Nanoseconds of the clock that all processes of the machine share.
inline std::int64_t now() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}
inline constexpr std::int64_t second = 1'000'000'000;

/// One thing that a process has done. A record is with the system as soon as it is written: a process that is
/// killed afterwards has still said it.
struct Record {
  enum class Kind : std::uint8_t {
    sent,      ///< about to be sent; in value the least number of pieces that it goes in
    unsent,    ///< send() threw
    closed,    ///< the sender's messenger is destroyed
    ready,     ///< all messengers of the process are made
    opened,    ///< a receiver's handler is set
    received,  ///< whole
    wrong,     ///< not what any label demands
    closing,   ///< a receiver is about to be destroyed
    left,      ///< it is destroyed
    asked,     ///< a request is about to be sent
    answered,
    misanswered,  ///< by something that is not its response
    failed,       ///< by an exception
    abandoned,    ///< by an exception, for its messenger was destroyed
    reported,     ///< the service's statistics: refused in number, lost in value; receiver tells whose
  };
  Kind kind;
  Lane lane = Lane::steady;
  std::uint32_t receiver = 0;  ///< unique within the process
  std::uint64_t sender = 0;    ///< unique
  std::uint64_t number = 0;
  std::uint64_t value = 0;
  std::int64_t time = 0;  ///< filled in by the journal
};

/// Where a process writes its records; a new file now and then, so that the reader can remove the old ones.
class Journal {
 public:
  Journal(std::filesystem::path folder, std::uint32_t process);
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  /// Any thread.
  void write(Record record);
  static std::filesystem::path fileOf(const std::filesystem::path& folder, std::uint32_t process, int part);

 private:
  void openNext();

  const std::filesystem::path _folder;
  const std::uint32_t _process;
  std::mutex _mutex;
  // Guarded by _mutex.
  int _file = -1;
  int _part = 0;
  std::size_t _records = 0;
};

/// Reads what a process has written since the last time, and removes the files that are done with.
class JournalReader {
 public:
  JournalReader(std::filesystem::path folder, std::uint32_t process);
  [[nodiscard]] std::vector<Record> read();

 private:
  bool readPart(std::vector<Record>& records);

  const std::filesystem::path _folder;
  const std::uint32_t _process;
  int _part = 1;
  std::size_t _taken = 0;  // records of this part
};

}  // namespace soak
