#pragma once

namespace remote_connectivity::asyncio::util::constants {

inline constexpr char ServiceName[] = "remote.kestrel.connectivity";

// Keys of a messenger's options. The spelling of the last one is what callers use.
inline constexpr char ProducerAck[] = "producerACK";
inline constexpr char ProducerUsesBuffer[] = "producerUsesBuffer";
inline constexpr char MessageSizeLimit[] = "msgSizeLimit";
inline constexpr char MessageRateLimit[] = "masgSizeRate";

// The value of the attribute "COMPRESSIONTYPE" that marks a piece of a payload.
inline constexpr char Chunk[] = "chunk";

// Names of the control commands.
inline constexpr char RegisterClient[] = "registerAsyncIOClient";
inline constexpr char UnregisterClient[] = "unregisterAsyncIOClient";
inline constexpr char CreateHost[] = "createHost";
inline constexpr char TerminateHost[] = "terminateHost";
inline constexpr char GetActiveHosts[] = "getActiveHosts";
inline constexpr char CreateChannel[] = "createChannel";
inline constexpr char TerminateChannel[] = "term";
inline constexpr char Heartbeat[] = "heartbeat";

}  // namespace remote_connectivity::asyncio::util::constants
