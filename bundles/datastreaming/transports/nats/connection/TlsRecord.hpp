#pragma once

namespace kestrel::streams {

/// Whether the socket, which is readable, holds the whole TLS record that comes next, or as much of it as it
/// can. If not, it counts as readable only when it does.
[[nodiscard]] bool tlsRecordComplete(int socket);

}  // namespace kestrel::streams
