#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace soak {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
inline constexpr int slowness = 4;
#else
inline constexpr int slowness = 1;
#endif

enum class Transport : std::uint8_t { memory, live, durable, ipc };
inline constexpr std::array<const char*, 4> transportNames{"memory", "live", "durable", "ipc"};

inline constexpr bool needsServer(Transport transport) {
  return transport == Transport::live || transport == Transport::durable;
}

/// One stream each, so that what is reported on one cannot stand in for what is lost on another.
enum class Lane : std::uint8_t {
  steady,    ///< all sizes, both ends stay
  flood,     ///< more than the receiver takes
  idle,      ///< pauses longer than every time-out
  comers,    ///< senders made and destroyed by the resident process
  guests,    ///< receivers made and destroyed by the resident process
  visitors,  ///< senders in processes of their own, which are killed or told to end
  hosts,     ///< receivers in processes of their own, likewise
  ask,       ///< requests and responses between ends that stay
  calls,     ///< those of requesters that come and go
};
inline constexpr std::array<const char*, 9> laneNames{"steady",   "flood", "idle", "comers", "guests",
                                                      "visitors", "hosts", "ask",  "calls"};

inline std::string streamOf(Transport transport, Lane lane) {
  return std::string("soak-") + transportNames[static_cast<std::size_t>(transport)] + "-" +
         laneNames[static_cast<std::size_t>(lane)];
}

/// How long the service may go on trying to store a durable message; what the pauses are measured by.
inline constexpr int retrySeconds = 4;

/// Longer than a payload may be silent: 10 s live, the retry time and 10 s durable.
inline constexpr int longPauseSeconds(Transport transport) {
  return transport == Transport::durable ? retrySeconds + 12 : 12;
}

/// Each requester has its own slot.
inline constexpr int residentSlot = 0;
inline constexpr int comersSlot = 1;
inline constexpr int firstVisitorSlot = 2;
inline constexpr Lane laneOfSlot(int slot) {
  return slot == residentSlot ? Lane::ask : Lane::calls;
}

/// Where requests of that slot go and where their responses come back.
struct RequestStreams {
  RequestStreams(Transport transport, int slot)
      : ask(streamOf(transport, laneOfSlot(slot)) + "-" + std::to_string(slot)), reply(ask + "-reply") {}
  std::string ask;
  std::string reply;
};
inline constexpr int visitors = 2;  ///< sending processes on each transport beyond the process

}  // namespace soak
