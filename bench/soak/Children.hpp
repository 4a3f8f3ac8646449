#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

#include "Journal.hpp"
#include "Worker.hpp"

namespace soak {

/// What a process takes of the machine.
struct Footprint {
  long residentMiB = 0;
  long threads = 0;
  long descriptors = 0;
};

/// A worker process of this program. It ends with this one, whatever becomes of it.
class Child {
 public:
  explicit Child(Assignment assignment);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  [[nodiscard]] const Assignment& assignment() const { return _assignment; }
  [[nodiscard]] JournalReader& journal() { return _journal; }
  void signal(int signal) const;
  /// SIGKILL, and waits for it.
  void kill();
  [[nodiscard]] bool killed() const { return _killed; }
  /// Whether it has ended by now.
  [[nodiscard]] bool ended();
  /// Why it should not have ended as it did; empty if it was killed by us or ended well.
  [[nodiscard]] std::string complaint() const;
  [[nodiscard]] std::optional<Footprint> footprint() const;

 private:
  [[nodiscard]] std::filesystem::path log() const;
  void become() const;

  const Assignment _assignment;
  JournalReader _journal;
  pid_t _pid = -1;
  bool _killed = false;
  std::optional<int> _status;
};

}  // namespace soak
