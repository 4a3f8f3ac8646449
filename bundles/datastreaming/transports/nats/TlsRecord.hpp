#pragma once

namespace kestrel::streams {

/// Whether the socket holds the whole TLS record that comes next, or no more will come. If not, the socket
/// counts as readable only when it does.
[[nodiscard]] bool tlsRecordComplete(int socket);

}  // namespace kestrel::streams
