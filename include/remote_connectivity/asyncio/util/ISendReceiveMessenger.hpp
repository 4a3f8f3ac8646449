#pragma once

#include "remote_connectivity/asyncio/util/IReceiveMessenger.hpp"
#include "remote_connectivity/asyncio/util/ISendMessenger.hpp"

namespace remote_connectivity::asyncio::util {

/// A messenger that sends on one stream and receives from another.
///
/// Destroying it drops what is still queued, breaks the promises of pending requests, and waits for a handler
/// in flight. It must not be destroyed inside one of its own handlers, nor while another thread calls it.
class REMOTE_CONNECTIVITY_EXPORT ISendReceiveMessenger : public ISendMessenger, public IReceiveMessenger {
 public:
  ~ISendReceiveMessenger() override;
};

}  // namespace remote_connectivity::asyncio::util
