#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "Plan.hpp"

namespace soak {

/// What a process of the soak is told when it starts.
struct Assignment {
  enum class Role { resident, visitor, host };

  Role role = Role::resident;
  Transport transport = Transport::memory;
  int slot = 0;
  std::uint32_t process = 0;
  std::uint64_t seed = 0;
  std::string endpoint{};
  std::filesystem::path folder{};

  [[nodiscard]] std::vector<std::string> arguments() const;
  /// Throws std::exception for anything that arguments() does not make.
  explicit Assignment(const std::vector<std::string>& arguments);
  Assignment() = default;
};

/// Does the work until it is told to stop: SIGUSR1 ends the sending, SIGTERM everything; SIGUSR2 has the
/// heap give back what nobody uses. The signals must be blocked already. Gives the exit code.
int runWorker(const Assignment& assignment);

}  // namespace soak
