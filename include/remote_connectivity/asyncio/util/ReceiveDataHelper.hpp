#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "remote_connectivity/asyncio/util/DataStruct.hpp"
#include "remote_connectivity/asyncio/util/Export.hpp"

namespace remote_connectivity::asyncio::util {

/// Given one whole payload; the bytes are valid during the call only.
using ReceiveCallback = std::function<void(const std::uint8_t* data, std::uint64_t size,
                                           const std::string& messageId, AttributeMap attributes)>;

/// Joins the chunks of a payload (see SendDataHelper::splitAndSend) and passes other messages straight on.
///
/// Takes no lock: drive it from one thread at a time, in message order. It trusts its stream: chunks of one
/// payload must arrive in order, without a gap and without chunks of other payloads between them.
class REMOTE_CONNECTIVITY_EXPORT ReceiveDataHelper {
 public:
  explicit ReceiveDataHelper(const ReceiveCallback& callback);
  ~ReceiveDataHelper();
  ReceiveDataHelper(const ReceiveDataHelper&) = delete;
  ReceiveDataHelper& operator=(const ReceiveDataHelper&) = delete;

  /// True if the attributes mark a chunk. Throws std::bad_variant_access if the mark is an integer.
  [[nodiscard]] bool isChunkAssembleNeeded(const AttributeMap& attributes);

  /// Takes one message. Calls the callback at once for a message that is no chunk, and with the whole payload
  /// for the last chunk, whose attributes lose "COMPRESSIONTYPE" in the caller's map too. What the callback
  /// throws reaches the caller, and the bytes of a chunked payload then stay for the next one. Throws
  /// std::bad_variant_access for a chunk mark of the wrong type.
  void assembleAndProcess(const std::uint8_t* data, std::size_t size, const std::string& messageId,
                          AttributeMap& attributes);

 private:
  REMOTE_CONNECTIVITY_LOCAL void passOn(const std::uint8_t* data, std::size_t size,
                                        const std::string& messageId, AttributeMap& attributes);

  ReceiveCallback _callback;
  std::vector<std::uint8_t> _msgChunks;  // what has arrived of the payload in progress, else empty
};

}  // namespace remote_connectivity::asyncio::util
